"""A PostgreSQL server of its own for the extension's test and the measurements: the server's
programs copied into a staging tree inside the build folder, whose share and library folders
hold the system's files (as links) and the extension, so that CREATE EXTENSION finds it without
root and without writing outside the build tree. The server listens on a Unix socket in that
folder only and is stopped however the work ends (use it in a `with` statement).

When run as root (the server refuses root) the server's programs run as the postgres user.
"""
import glob
import os
import shutil
import signal
import subprocess
import sys
import tempfile


def _stop_on_signal(number, frame):
    # SIGTERM and SIGHUP end the work as an exception does: the server is stopped.
    sys.exit(128 + number)


def _clean_leftovers(where):
    """Stops and removes the servers of earlier runs that were killed outright (a test
    timeout's SIGKILL leaves no chance to stop them)."""
    for root in glob.glob(os.path.join(where, "pg-*")):
        for pid_file in glob.glob(os.path.join(root, "data", "postmaster.pid")):
            try:
                pid = int(open(pid_file).readline())
                os.kill(pid, signal.SIGQUIT)  # the server's immediate shutdown
            except (OSError, ValueError):
                pass
        shutil.rmtree(root, ignore_errors=True)


class Server:
    def __init__(self, extension_build, extension_source, nus_libdir, pg_bindir, pg_pkglibdir,
                 pg_sharedir, where=None):
        self.paths = (extension_build, extension_source, nus_libdir)
        self.pg = (pg_bindir, pg_pkglibdir, pg_sharedir)
        where = where or os.getcwd()
        _clean_leftovers(where)
        for number in (signal.SIGTERM, signal.SIGHUP):
            signal.signal(number, _stop_on_signal)
        # Short: the socket's path must stay under 108 bytes.
        self.root = tempfile.mkdtemp(prefix="pg-", dir=where)
        self.started = False
        self.as_postgres = os.getuid() == 0

    # ---- staging ---------------------------------------------------------------------------
    def _stage(self):
        bindir, pkglibdir, sharedir = self.pg
        common = os.path.commonpath([bindir, pkglibdir, sharedir])
        stage = lambda d: os.path.join(self.root, "inst", os.path.relpath(d, common))
        self.bindir = stage(bindir)
        os.makedirs(self.bindir)
        # Copies, not links: the server finds its share and library folders from where its
        # program really lies.
        for program in ("postgres", "initdb", "pg_ctl"):
            shutil.copy2(os.path.join(bindir, program), self.bindir)
        build, source, _ = self.paths
        for system, ours in ((pkglibdir, [os.path.join(build, "nus_pg.so")]),
                             (sharedir, None)):
            target = stage(system)
            os.makedirs(target)
            for entry in os.listdir(system):
                if system == sharedir and entry == "extension":
                    continue
                os.symlink(os.path.join(system, entry), os.path.join(target, entry))
            for f in ours or []:
                os.symlink(f, os.path.join(target, os.path.basename(f)))
        extension = os.path.join(stage(sharedir), "extension")
        os.makedirs(extension)
        for entry in os.listdir(os.path.join(sharedir, "extension")):
            os.symlink(os.path.join(sharedir, "extension", entry), os.path.join(extension, entry))
        for f in ("nus.control", "nus--1.0.sql"):
            os.symlink(os.path.join(source, f), os.path.join(extension, f))

    def _run(self, args, **kw):
        if self.as_postgres:
            args = ["runuser", "-u", "postgres", "--"] + args
        return subprocess.run(args, capture_output=True, text=True, **kw)

    def __enter__(self):
        try:
            if self.as_postgres:
                # The server runs as postgres: it must reach the library, the data and this folder.
                needed = [os.path.join(self.paths[2], "libnus.so.4"),
                          os.path.join(os.environ.get("TESSARONDIR", "/usr/tessaron"), "nus"),
                          os.path.dirname(self.root)]
                r = subprocess.run(["runuser", "-u", "postgres", "--", "sh", "-c",
                                    'for f; do test -r "$f" || echo "$f"; done', "-", *needed],
                                   capture_output=True, text=True)
                if r.returncode != 0 or r.stdout.strip():
                    raise RuntimeError("the postgres user, which runs the server, cannot read "
                                       + (r.stdout.strip() or r.stderr.strip()))
            self._stage()
            self.data = os.path.join(self.root, "data")
            self.log = os.path.join(self.root, "server.log")
            if self.as_postgres:
                shutil.chown(self.root, "postgres", "postgres")
            env = dict(os.environ, LD_LIBRARY_PATH=self.paths[2], LC_ALL="C")
            r = self._run([os.path.join(self.bindir, "initdb"), "-D", self.data, "-U", "postgres",
                           "--auth=trust", "--no-sync", "-E", "UTF8", "--locale=C"], env=env)
            if r.returncode != 0:
                raise RuntimeError("initdb failed: " + r.stdout + r.stderr)
            options = ("-c listen_addresses='' -c unix_socket_directories='%s' -c fsync=off "
                       "-c max_connections=30" % self.root)
            r = self._run([os.path.join(self.bindir, "pg_ctl"), "-D", self.data, "-l", self.log,
                           "-o", options, "-w", "start"], env=env)
            self.started = r.returncode == 0
            if not self.started:
                log = open(self.log).read() if os.path.exists(self.log) else ""
                raise RuntimeError("pg_ctl start failed: " + r.stdout + r.stderr + log)
        except BaseException:
            self.__exit__(None, None, None)
            raise
        return self

    def __exit__(self, kind, value, trace):
        if kind is not None and os.path.exists(getattr(self, "log", "")):
            print("---- the server's log, ending:")
            print("".join(open(self.log, errors="replace").readlines()[-40:]))
        if self.started:
            self._run([os.path.join(self.bindir, "pg_ctl"), "-D", self.data, "-m", "immediate",
                       "-w", "stop"])
            self.started = False
        shutil.rmtree(self.root, ignore_errors=True)
        return False

    # ---- clients ---------------------------------------------------------------------------
    def client_args(self):
        return ["-h", self.root, "-U", "postgres"]

    def psql(self, sql, check=True):
        """Runs SQL through psql; the rows as lists of fields (unaligned, tab-separated)."""
        r = subprocess.run(["psql", "-X", "-q", "-A", "-t", "-F", "\t", "-v", "ON_ERROR_STOP=1",
                            *self.client_args(), "-d", "postgres"], input=sql,
                           capture_output=True, text=True)
        if check and r.returncode != 0:
            raise RuntimeError("psql failed on %r: %s" % (sql[:200], r.stderr))
        if not check:
            return r
        return [line.split("\t") for line in r.stdout.split("\n") if line != ""]
