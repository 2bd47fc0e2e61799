"""Makes an application that is signed ad hoc, for the benchmarks beside this file.

Usage: signed_code.py APPLICATION MEGABYTES
"""

import hashlib
import os
import plistlib
import random
import struct
import sys

import payloads

PAGE = 4096
ARM64 = (0x0100000C, 0)
RULES = {
    "^.*": True,
    "^[^/]+$": {"nested": True, "weight": 10.0},
    "^(Frameworks|MacOS)/": {"nested": True, "weight": 10.0},
    "^Resources/": {"weight": 20.0},
    "^Info\\.plist$": {"omit": True, "weight": 20.0},
}


def blob(magic, content):
    return struct.pack(">II", magic, 8 + len(content)) + content


def code_directory(code, identifier, special):
    """Digests with SHA-256 of the pages, and of the files whose bytes are given by their slots."""
    name = identifier.encode() + b"\0"
    slots = b"".join(hashlib.sha256(special[slot]).digest() if slot in special else bytes(32) for slot in (3, 2, 1))
    pages = [hashlib.sha256(code[at:at + PAGE]).digest() for at in range(0, len(code), PAGE)]
    header = struct.pack(">IIIIIIIBBBBI", 0x20001, 2, 44 + len(name) + len(slots), 44, 3, len(pages), len(code),
                         32, 2, 0, 12, 0)
    return blob(0xFADE0C02, header + name + slots + b"".join(pages))


def executable(size, identifier, special, randomness):
    """A thin file of about `size` bytes whose code is noise, and its cdhash."""
    start = -(-size // PAGE) * PAGE
    directory_size = 44 + len(identifier) + 1 + 3 * 32 + 32 * (start // PAGE)
    signature_size = 20 + 8 + directory_size
    signature_size = -(-signature_size // 16) * 16

    def segment(name, offset, length):
        return struct.pack("<II16sQQQQIIII", 0x19, 72, name, 0, length, offset, length, 7, 5, 0, 0)
    commands = (segment(b"__TEXT", 0, start) + segment(b"__LINKEDIT", start, signature_size)
                + struct.pack("<IIII", 0x1D, 16, start, signature_size))
    header = struct.pack("<IIIIIIII", 0xFEEDFACF, *ARM64, 2, 3, len(commands), 0, 0)
    code = header + commands
    code += randomness.randbytes(start - len(code))
    directory = code_directory(code, identifier, special)
    signature = blob(0xFADE0CC0, struct.pack(">III", 1, 0, 20) + directory)
    return code + signature.ljust(signature_size, b"\0"), hashlib.sha256(directory).digest()[:20]


def write(path, content):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as file:
        file.write(content)


def sign(root, information, program, size, identifier, nested, randomness):
    """Seals a folder and writes the program whose signature covers all of it. Returns the program's cdhash."""
    sealed = {}
    for folder, _, names in os.walk(root):
        for name in names:
            path = os.path.relpath(os.path.join(folder, name), root)
            if path == "Info.plist" or any(path.startswith(inner + "/") for inner in nested):
                continue
            with open(os.path.join(folder, name), "rb") as file:
                sealed[path] = {"hash2": hashlib.sha256(file.read()).digest()}
    for path, cdhash in nested.items():
        sealed[path] = {"cdhash": cdhash, "requirement": f'cdhash H"{cdhash.hex()}"'}
    resources = plistlib.dumps({"files2": sealed, "rules2": RULES})
    write(os.path.join(root, "_CodeSignature/CodeResources"), resources)
    with open(information, "rb") as file:
        special = {1: file.read(), 3: resources}
    code, cdhash = executable(size, identifier, special, randomness)
    write(os.path.join(root, program), code)
    return cdhash


def make_application(application, megabytes):
    """A fifth the program, a fifth a framework's, the rest resources like those of payloads."""
    randomness = random.Random(2)
    contents = os.path.join(application, "Contents")
    payloads.make_tree(os.path.join(contents, "Resources"), megabytes * 3 // 5)
    framework = os.path.join(contents, "Frameworks/Inner.framework")
    version = os.path.join(framework, "Versions/A")
    for root, information, name in ((version, os.path.join(version, "Resources/Info.plist"), "Inner"),
                                    (contents, os.path.join(contents, "Info.plist"), "Outer")):
        write(information, plistlib.dumps({"CFBundleIdentifier": f"com.example.{name}", "CFBundleExecutable": name,
                                           "CFBundleShortVersionString": "1.0", "CFBundlePackageType": "APPL" if name == "Outer" else "FMWK"}))
    size = megabytes * (1 << 20) // 5
    cdhash = sign(version, os.path.join(version, "Resources/Info.plist"), "Inner", size, "com.example.Inner", {},
                  randomness)
    os.symlink("A", os.path.join(framework, "Versions/Current"))
    for name in ("Inner", "Resources"):
        os.symlink(f"Versions/Current/{name}", os.path.join(framework, name))
    sign(contents, os.path.join(contents, "Info.plist"), "MacOS/Outer", size, "com.example.Outer",
         {"Frameworks/Inner.framework": cdhash}, randomness)


if __name__ == "__main__":
    make_application(sys.argv[1], int(sys.argv[2]))
