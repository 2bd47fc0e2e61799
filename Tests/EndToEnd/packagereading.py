"""Opens packages with none of our own code: 7zz opens the archives, cpio the payloads and scripts."""

import bz2, gzip, lzma, os, shutil, stat, struct, subprocess, sys, tempfile


def fail(text):
    sys.exit(os.path.basename(sys.argv[0]) + ": " + text)


def require_same(what, vendor, rebuilt):
    if vendor != rebuilt:
        fail(f"{what} differs:\n  vendor: {str(vendor)[:400]}\n  ours:   {str(rebuilt)[:400]}")


def run(command, **options):
    outcome = subprocess.run(command, capture_output=True, **options)
    if outcome.returncode != 0:
        fail(f"{command[0]} failed: {(outcome.stderr or outcome.stdout).decode(errors='replace')[-400:]}")
    return outcome.stdout


def unpbzx(data):
    (block_size,) = struct.unpack(">Q", data[4:12])
    at, pieces = 12, []
    while at < len(data):
        length, stored = struct.unpack(">QQ", data[at : at + 16])
        piece = data[at + 16 : at + 16 + stored]
        if length != stored:
            piece = lzma.decompress(piece, lzma.FORMAT_XZ)
        if len(piece) != length or length > block_size:
            fail("a pbzx block has another length than it says")
        pieces.append(piece)
        at += 16 + stored
    return b"".join(pieces)


def archive_in(data):
    for magic, decode in ((b"\x1f\x8b", gzip.decompress), (b"BZh", bz2.decompress), (b"pbzx", unpbzx)):
        if data.startswith(magic):
            return decode(data)
    return data


def expand(package, folder):
    run(["7zz", "t", "-txar", package])
    run(["7zz", "x", "-txar", "-y", "-o" + folder, package])
    os.remove(os.path.join(folder, "[TOC].xml"))


def unpack(path):
    """Puts the tree in the place of its archive."""
    if not os.path.isfile(path):
        return
    with open(path, "rb") as file:
        data = archive_in(file.read())
    os.remove(path)
    os.mkdir(path)
    run(["cpio", "-idm", "--quiet", "--no-absolute-filenames", "--no-preserve-owner"], input=data, cwd=path)


def tree(root):
    """Type, permissions, time (of files), content or target of everything, and which names are one file."""
    found, names_of = {}, {}
    for folder, folders, files in os.walk(root):
        for name in folders + files:
            path = os.path.join(folder, name)
            relative = os.path.relpath(path, root)
            status = os.lstat(path)
            content = None
            if stat.S_ISLNK(status.st_mode):
                content = os.readlink(path)
            elif stat.S_ISREG(status.st_mode):
                with open(path, "rb") as file:
                    content = file.read()
                names_of.setdefault((status.st_dev, status.st_ino), []).append(relative)
            # The archivers do not agree on the times of links and folders.
            when = int(status.st_mtime) if stat.S_ISREG(status.st_mode) else None
            found[relative] = (oct(status.st_mode), when, content)
    return found, sorted(sorted(names) for names in names_of.values() if len(names) > 1)


def compare_trees(what, vendor, rebuilt):
    require_same(what + ", presence", os.path.isdir(vendor), os.path.isdir(rebuilt))
    if not os.path.isdir(vendor):
        return
    (vendor_tree, vendor_links), (rebuilt_tree, rebuilt_links) = tree(vendor), tree(rebuilt)
    require_same(what + ", names", sorted(vendor_tree), sorted(rebuilt_tree))
    for path in sorted(vendor_tree):
        require_same(f"{what}/{path}", vendor_tree[path], rebuilt_tree[path])
    require_same(what + ", hard links", vendor_links, rebuilt_links)


def prove_in_folder(prove):
    """Runs a proof with a scratch folder, which goes with it."""
    work = tempfile.mkdtemp()
    try:
        prove(work)
    finally:
        subprocess.run(["chmod", "-R", "u+rwX", work], check=False)
        shutil.rmtree(work)
