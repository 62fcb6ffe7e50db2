"""A private instance of the service for browser tests and benchmarks.

Makes a temp ZEMO_ROOT with scripts/make-root.sh against a build folder,
starts orvel-syncd and lighttpd (serving the repository's web/ folder) on a
free port, adds a user with orvelctl, and stops everything on close().
"""
import os
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time

REPO = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
USER = "alice"
PASSWORD = "alice-pass-1"


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def wait_for(check, what, seconds=30.0):
    """Polls check() until it is true; start-up only, never in a test body."""
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        if check():
            return
        time.sleep(0.05)
    raise RuntimeError("timed out waiting for " + what)


class Stack:
    def __init__(self, build_dir, before_daemon=None):
        # A runner stopped with SIGTERM (ctest's timeout) still stops the
        # daemon and lighttpd: the signal unwinds through the callers' finally.
        if threading.current_thread() is threading.main_thread():
            signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
        self.build = os.path.abspath(build_dir)
        self.root = tempfile.mkdtemp(prefix="orvel-web-")
        os.chmod(self.root, 0o755)
        self.port = free_port()
        self.url = "http://127.0.0.1:%d/" % self.port
        self.target = os.path.join(self.root, "var/packages/ZemoraOrvel/target")
        self.logdir = os.path.join(self.target, "var/log")
        self.data = os.path.join(self.root, "volume1/ZemoraOrvel")
        self.env = dict(os.environ, ZEMO_ROOT=self.root)
        self.daemon = None
        self.lighttpd_conf = os.path.join(self.target, "var/lighttpd.conf")
        self._start(before_daemon)

    def home(self, user=USER):
        return os.path.join(self.data, "homes", user)

    def _bin(self, rel):
        path = os.path.join(self.build, rel)
        if not os.access(path, os.X_OK):
            raise RuntimeError("missing in the build folder: " + path)
        return path

    def orvelctl(self, *args):
        return subprocess.run([self._bin("tools/orvelctl/orvelctl")] + list(args), env=self.env,
                              check=True, capture_output=True, text=True).stdout

    def _start(self, before_daemon):
        subprocess.run([os.path.join(REPO, "scripts/make-root.sh"), self.root, self.build],
                       check=True)
        os.makedirs(self.logdir, exist_ok=True)
        self.orvelctl("user", "add", USER, "--password", PASSWORD)
        if before_daemon:
            before_daemon(self)
        with open(os.path.join(self.logdir, "orvel-syncd.log"), "ab") as log:
            self.daemon = subprocess.Popen([self._bin("platform/syncd/orvel-syncd")],
                                           env=self.env, stdout=log, stderr=log)
        sock = os.path.join(self.root, "tmp/cloud-syncservice")
        wait_for(lambda: os.path.exists(sock) or self.daemon.poll() is not None, "orvel-syncd")
        if self.daemon.poll() is not None:
            raise RuntimeError("orvel-syncd exited; see " + self.logdir)
        subprocess.run([os.path.join(REPO, "scripts/render-lighttpd-conf.sh"), self.root,
                        str(self.port), os.path.join(REPO, "web"),
                        self._bin("platform/webapi/entry.cgi"), self.lighttpd_conf, self.logdir],
                       check=True)
        subprocess.run(["lighttpd", "-f", self.lighttpd_conf], check=True)
        wait_for(self._listening, "lighttpd")

    def _listening(self):
        try:
            with socket.create_connection(("127.0.0.1", self.port), timeout=1):
                return True
        except OSError:
            return False

    def close(self, keep=False):
        pid_file = os.path.join(os.path.dirname(self.lighttpd_conf), "lighttpd.pid")
        if os.path.exists(pid_file):
            with open(pid_file) as f:
                os.kill(int(f.read().strip()), signal.SIGTERM)
        if self.daemon and self.daemon.poll() is None:
            self.daemon.terminate()
            self.daemon.wait(timeout=30)
        if not keep:
            shutil.rmtree(self.root, ignore_errors=True)
