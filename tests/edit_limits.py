#!/usr/bin/env python3
# flairize edit under misuse: a request naming another host (DNS rebinding) is
# refused; over a thousand idle connections leave the server answering; a FIFO
# in the site, or in place of the picture, is not served and blocks nothing; a
# request left unfinished is closed after the server's timeout.
# Usage: edit_limits.py FLAIRIZE. Exit 77: built without libmicrohttpd, or the
# descriptor limit is too low for the flood.
import os
import resource
import select
import signal
import socket
import subprocess
import sys
import tempfile
import time

FLOOD = 1030            # past select()'s 1024 descriptors
ANSWER_WAIT = 5         # seconds a request may take before it counts as unanswered
PARTIAL_WAIT = 25       # the server's timeout is 10 s; closing must come well within this

failures = []


def fail(text):
    print("FAIL: " + text)
    failures.append(text)


def expect(what, want, got):
    if want != got:
        fail("%s: expected %r, got %r" % (what, want, got))


def get(port, path="/", host="", version="1.1"):
    """The status and body of one GET, or a string saying why there is none."""
    if host == "":
        host = "127.0.0.1:%d" % port
    head = "GET %s HTTP/%s\r\n" % (path, version)
    if host is not None:
        head += "Host: %s\r\n" % host
    head += "Connection: close\r\n\r\n"
    try:
        with socket.create_connection(("127.0.0.1", port), timeout=ANSWER_WAIT) as s:
            s.sendall(head.encode())
            data = b""
            while True:
                chunk = s.recv(65536)
                if not chunk:
                    break
                data += chunk
    except OSError as e:
        return "no answer (%s)" % (e.__class__.__name__,)
    status_line, _, rest = data.partition(b"\r\n")
    parts = status_line.split()
    if len(parts) < 2 or not parts[1].isdigit():
        return "no status line in %r" % data[:80]
    return int(parts[1]), rest.partition(b"\r\n\r\n")[2]


def status_of(answer):
    return answer[0] if isinstance(answer, tuple) else answer


def main():
    binary = sys.argv[1]
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    flood_possible = hard == resource.RLIM_INFINITY or hard >= FLOOD + 100
    tmp = tempfile.mkdtemp(prefix="flairize-edit-limits-")
    site = os.path.join(tmp, "site")
    os.mkdir(site)
    with open(os.path.join(site, "index.html"), "w") as f:
        f.write("<!doctype html><title>t</title>\n")
    with open(os.path.join(site, "flairize-engine.js"), "w") as f:
        f.write("var engine;\n")
    os.mkfifo(os.path.join(site, "pipe.js"))
    picture = os.path.join(tmp, "picture.png")
    with open(picture, "wb") as f:
        f.write(os.urandom(3000))

    # The server starts with the common soft limit of 1024 descriptors: raising
    # it is its own work.
    def usual_limit():
        resource.setrlimit(resource.RLIMIT_NOFILE, (min(1024, hard), hard))

    server = subprocess.Popen([binary, "edit", picture, "--site", site], stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, preexec_fn=usual_limit)
    flood = []
    try:
        ready, _, _ = select.select([server.stdout], [], [], 10)
        line = server.stdout.readline().decode() if ready else ""
        if not line.startswith("Flairize editor: http://127.0.0.1:"):
            server.wait(5)
            err = server.stderr.read().decode()
            if "built without libmicrohttpd" in err:
                print("skipped: flairize was built without libmicrohttpd")
                return 77
            fail("no address printed: %r %r" % (line, err))
            return 1
        port = int(line.split(":")[3].split("/")[0])
        picture_path = "/picture/picture.png"

        # A request that never ends, started first: it is checked last.
        partial = socket.create_connection(("127.0.0.1", port), timeout=ANSWER_WAIT)
        partial.sendall(("GET / HTTP/1.1\r\nHost: 127.0.0.1:%d\r\n" % port).encode())
        partial_sent = time.monotonic()

        # Host: only the printed address, by number or as localhost.
        for path, host, version, want in [
            ("/", "", "1.1", 200),
            ("/", "localhost:%d" % port, "1.1", 200),
            ("/", "LocalHost:%d" % port, "1.1", 200),
            (picture_path, "", "1.1", 200),
            ("/", None, "1.0", 200),
            ("/", None, "1.1", 421),
            ("/", "evil.example", "1.1", 421),
            ("/", "evil.example:%d" % port, "1.1", 421),
            (picture_path, "evil.example:%d" % port, "1.1", 421),
            ("/", "127.0.0.1", "1.1", 421),
            ("/", "localhost", "1.1", 421),
            ("/", "127.0.0.1:%d" % (port + 1), "1.1", 421),
            ("/", "127.0.0.1:%d.evil.example" % port, "1.1", 421),
            ("/", "evil.example", "1.0", 421),
        ]:
            answer = get(port, path, host, version)
            expect("GET %s, Host %r, HTTP/%s" % (path, host, version), want, status_of(answer))
            if want == 421 and status_of(answer) == 421 and not 0 < len(answer[1]) < 200:
                fail("a refusal's body is not one short line: %r" % answer[1][:200])

        # Idle connections past select()'s limit: a new request is still answered.
        if flood_possible:
            resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))
            for _ in range(FLOOD):
                flood.append(socket.create_connection(("127.0.0.1", port), timeout=ANSWER_WAIT))
            expect("GET / beside %d idle connections" % FLOOD, 200, status_of(get(port)))
            for s in flood:
                s.close()
            flood = []
        else:
            print("skipped: %d idle connections need a descriptor limit over %d (hard limit %d)"
                  % (FLOOD, FLOOD + 100, hard))

        # FIFOs are not files: refused without waiting for a writer, and the
        # server answers on.
        expect("GET /pipe.js (a FIFO)", 404, status_of(get(port, "/pipe.js")))
        os.unlink(picture)
        os.mkfifo(picture)
        expect("GET the picture replaced by a FIFO", 404, status_of(get(port, picture_path)))
        expect("GET / after the FIFOs", 200, status_of(get(port)))

        # The unfinished request is closed by the server, answered or not.
        partial.settimeout(max(1.0, partial_sent + PARTIAL_WAIT - time.monotonic()))
        try:
            while partial.recv(65536):
                pass
        except ConnectionResetError:
            pass
        except socket.timeout:
            fail("an unfinished request is still open after %d s" % PARTIAL_WAIT)
        partial.close()

        server.send_signal(signal.SIGINT)
        try:
            expect("exit on SIGINT", 0, server.wait(10))
        except subprocess.TimeoutExpired:
            fail("no exit 10 s after SIGINT")
        err = server.stderr.read().decode() if server.returncode is not None else ""
        if err:
            fail("stderr: %r" % err)
    finally:
        for s in flood:
            s.close()
        if server.poll() is None:
            server.kill()
            server.wait()
        for name in (picture, os.path.join(site, "pipe.js"), os.path.join(site, "index.html"),
                     os.path.join(site, "flairize-engine.js")):
            if os.path.lexists(name):
                os.unlink(name)
        os.rmdir(site)
        os.rmdir(tmp)
    if failures:
        return 1
    if not flood_possible:
        return 77
    print("flairize edit limits: all checks passed")
    return 0


if __name__ == "__main__":
    sys.exit(main())
