"""A machine in a scratch folder, on which the documented commands run: a user with a home of its own, a clone of the
project whose build is the one under test, a keychain with an identity, and a time-stamp authority that answers on the
loopback interface whatever address is asked for. Nothing outside of the folder is written to, and no network is used."""

import http.server
import os
import pathlib
import shutil
import subprocess
import tempfile
import threading

SOURCE = pathlib.Path(__file__).resolve().parents[2]
IDENTITY = "Developer ID Installer: Example (TEAMID)"

AUTHORITY_SETTINGS = """
[tsa]
default_tsa = default
[default]
serial = $ENV::FOLDER/serial
signer_digest = sha256
default_policy = 1.2.3.4.5.6
digests = sha1, sha256, sha512
"""

# Commands of the pages that would change the machine or need a network. `./run` and `./test` stand for the build.
STAND_INS = {
    "clone/run": 'exec corvane "$@"',
    "clone/test": "exit 0",
    "stand-ins/sudo": 'exec "$@"',
    "stand-ins/apt-get": "exit 0",
    "stand-ins/cmake": "exit 0",
    # A scheduler that runs the jobs of an array one after another: sbatch --array=1-N SCRIPT ARGUMENT...
    "stand-ins/sbatch": '''last=${1#--array=1-}; shift
for SLURM_ARRAY_TASK_ID in $(seq "$last"); do
    export SLURM_ARRAY_TASK_ID; SLURM_CPUS_PER_TASK=1 bash "$@" || echo "job $SLURM_ARRAY_TASK_ID: $?"
done''',
}


def openssl(folder, *arguments, **environment):
    return subprocess.run(["openssl", *arguments], cwd=folder, check=True, stdin=subprocess.DEVNULL,
                          capture_output=True, env=os.environ | environment).stdout


def make_certificate(folder, stem, name, issuer, extensions):
    """stem.key and stem.pem; a certificate without an issuer is a root."""
    (folder / "extensions").write_text("".join(f"{line}\n" for line in extensions))
    openssl(folder, "req", "-new", "-newkey", "rsa:2048", "-nodes", "-subj", f"/CN={name}", "-keyout", f"{stem}.key",
            "-out", "request")
    signer = ["-CA", f"{issuer}.pem", "-CAkey", f"{issuer}.key"] if issuer else ["-signkey", f"{stem}.key"]
    openssl(folder, "x509", "-req", "-in", "request", "-days", "30", "-extfile", "extensions", "-out", f"{stem}.pem",
            *signer)


class Authority(http.server.BaseHTTPRequestHandler):
    """Answers as the proxy of every address, with the certificate of `folder`."""

    def do_POST(self):
        query = self.rfile.read(int(self.headers["Content-Length"]))
        self.server.asked.set()
        if self.server.mode == "silent":
            return self.server.closing.wait()
        if self.server.mode == "down":
            return self.send_error(503)
        with tempfile.TemporaryDirectory() as name:
            folder = pathlib.Path(name)
            (folder / "query").write_bytes(query)
            (folder / "settings").write_text(AUTHORITY_SETTINGS)
            (folder / "serial").write_text("01\n")
            certificates = self.server.folder
            reply = openssl(folder, "ts", "-reply", "-config", "settings", "-queryfile", "query", "-signer",
                            str(certificates / "authority.pem"), "-inkey", str(certificates / "authority.key"),
                            FOLDER=str(folder))
        self.send_response(200)
        self.send_header("Content-Type", "application/timestamp-reply")
        self.send_header("Content-Length", str(len(reply)))
        self.end_headers()
        self.wfile.write(reply)

    def log_message(self, *_):
        pass


class ScratchMachine:
    """@param build the build folder with bin/ and libexec/corvane/; it is only read"""

    def __init__(self, build):
        self._folder = tempfile.TemporaryDirectory(prefix="corvane-documentation-")
        self.root = pathlib.Path(self._folder.name)
        self.clone = self.root / "clone"
        self.build = pathlib.Path(build).resolve()
        for name in ("home", "temporary", "stand-ins", "certificates", "clone/build"):
            (self.root / name).mkdir(parents=True)
        self._make_clone()
        self._start_authority()
        self.environment = {
            "PATH": f"{self.root}/stand-ins:{self.build}/bin:{self.build}/libexec/corvane:{os.environ['PATH']}",
            "HOME": str(self.root / "home"), "TMPDIR": str(self.root / "temporary"), "LC_ALL": "C.UTF-8",
            "USER": "admin", "SHELL": "/bin/bash", "PYTHONDONTWRITEBYTECODE": "1",
            "http_proxy": f"http://127.0.0.1:{self.authority.server_port}"}
        self.tool("security", "add-trusted-cert", self.certificates / "root.pem")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.authority.closing.set()
        self.authority.shutdown()
        self.authority.server_close()
        self._folder.cleanup()

    def _make_clone(self):
        for name in ("Examples", "Documentation"):
            shutil.copytree(SOURCE / name, self.clone / name, symlinks=True)
        subprocess.run(["chmod", "-R", "u+w", self.clone], check=True)
        (self.clone / "build/release").symlink_to(self.build)
        for name, script in STAND_INS.items():
            (self.root / name).write_text(f"#!/bin/sh\n{script}\n")
            (self.root / name).chmod(0o755)

    def _start_authority(self):
        self.certificates = self.root / "certificates"
        make_certificate(self.certificates, "root", "Example Root CA", None,
                         ["basicConstraints=critical,CA:TRUE", "keyUsage=critical,keyCertSign"])
        make_certificate(self.certificates, "authority", "Example Timestamp Signer", "root",
                         ["keyUsage=critical,digitalSignature", "extendedKeyUsage=critical,timeStamping"])
        self.authority = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Authority)
        self.authority.folder = self.certificates
        self.authority.mode = "good"
        self.authority.asked, self.authority.closing = threading.Event(), threading.Event()
        threading.Thread(target=self.authority.serve_forever, daemon=True).start()

    def make_identity(self):
        """IDENTITY.p12 in the clone, with the passphrase in `passphrase`, as a Mac's keychain exports it."""
        make_certificate(self.certificates, "installer", IDENTITY, "root",
                         ["keyUsage=critical,digitalSignature", "extendedKeyUsage=critical,1.2.840.113635.100.4.13"])
        openssl(self.certificates, "pkcs12", "-export", "-in", "installer.pem", "-inkey", "installer.key", "-certfile",
                "root.pem", "-passout", "pass:correct horse", "-out", str(self.clone / "IDENTITY.p12"))
        (self.clone / "passphrase").write_text("correct horse\n")
        (self.clone / "passphrase").chmod(0o600)

    def import_identity(self):
        self.make_identity()
        self.tool("security", "import", self.clone / "IDENTITY.p12", "--passphrase-file", self.clone / "passphrase")

    def run(self, arguments, **options):
        """As `subprocess.run`, in the clone, with both outputs as text."""
        settings = {"cwd": self.clone, "env": self.environment, "stdin": subprocess.DEVNULL, "text": True,
                    "stdout": subprocess.PIPE, "stderr": subprocess.PIPE, "timeout": 240}
        return subprocess.run([str(argument) for argument in arguments], **(settings | options))

    def tool(self, name, *arguments):
        """Runs a portable tool that must succeed; its output."""
        done = self.run([self.build / "libexec/corvane" / name, *arguments])
        if done.returncode != 0:
            raise SystemExit(f"{name} {arguments}: {done.returncode}\n{done.stdout}{done.stderr}")
        return done.stdout
