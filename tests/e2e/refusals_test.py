"""A mail server that refuses, drops or hangs at each stage: what standard delivery makes of it."""
import contextlib
import re
import socket
import ssl
import subprocess
import threading

from road import ATTEMPT, DELIVERED, FAILED, RoadTest, events, smtp_server

REPLIES = {"": "220 hello", "EHLO": "250-hello\r\n250 AUTH PLAIN", "AUTH": "235 welcome", "DATA": "354 go on",
           "QUIT": "221 bye"}

# The stage, what the server does there; curl's exit value and message, the reply in the log, and the verdict.
STAGES = """
 greeting | 421 busy      | 8  | Got unexpected smtp-server response: 421      | 421 | later
 greeting | hang          | 28 |                                               | 000 | later
 EHLO     | drop          | 56 | response reading failed                       | 220 | later
 HELO     | 502 unknown   | 9  | Remote access denied: 502                     | 502 | never
 AUTH     | 535 wrong     | 67 | Login denied                                  | 535 | never
 MAIL     | 552 too large | 55 | MAIL failed: 552                              | 552 | never
 MAIL     | drop          | 56 | response reading failed                       | 235 | later
 RCPT     | 450 greylist  | 55 | RCPT failed: 450                              | 450 | later
 DATA     | 554 no        | 55 | DATA failed: 554                              | 554 | never
 .        | 452 full      | 8  | Weird server reply                            | 452 | later
 .        | drop          | 56 | response reading failed                       | 354 | not known
"""
SAID = {
    "never": "Sending through server {} failed for good and is not tried again. (Profile Description: Gate)",
    "not known": "The connection to server {} was lost after the whole message was sent. Nobody knows whether it "
                 "arrived; it is sent again under the same identifier. (Profile Description: Gate)"}


class ScriptedServer:
    """Takes one mail, but for one stage; keeps what it is told. With a certificate it speaks TLS."""

    def __init__(self, test, stage="", action="220 hello", certificate=None):
        self.context = certificate and ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        if certificate:
            self.context.load_cert_chain(certificate)
        self.actions = {**REPLIES, stage: action, **({"EHLO": "502 what"} if stage == "HELO" else {})}
        self.seen = []
        self.socket = test.enterContext(socket.create_server(("127.0.0.1", 0)))
        self.port = self.socket.getsockname()[1]
        threading.Thread(target=self.serve, daemon=True).start()

    def answer(self, file, stage):
        action = self.actions.get(stage, "250 fine")
        if action == "hang":
            file.read()
        if action in ("hang", "drop"):
            raise EOFError
        file.write(action.encode() + b"\r\n")
        file.flush()
        return action

    def serve(self):
        with contextlib.suppress(OSError, EOFError):
            connection, _ = self.socket.accept()
            if self.context:
                connection = self.context.wrap_socket(connection, server_side=True)
            with connection, connection.makefile("rwb") as file:
                self.answer(file, "")
                for line in file:
                    self.seen.append(line)
                    verb = line[:4].decode()
                    if verb == "AUTH" and line.count(b" ") == 1:
                        file.write(b"334 \r\n")
                        file.flush()
                        file.readline()
                    if self.answer(file, verb).startswith("354"):
                        while file.readline() != b".\r\n":
                            pass
                        self.answer(file, ".")


class RefusalsTest(RoadTest):
    def send(self, servers, tls=0, **settings):
        """Sends a mail. Servers: description, address and port. Gives the timeline, and behind the exit value of
        each attempt the lines that follow it."""
        self.configure([smtp_server(port, name, address, tls, ("nvr", "secret")) for name, address, port in servers],
                       delivery={"Standard": 1, "MaxTransferSeconds": 2, "HelloName": "nvr.example.com", **settings})
        timeline = self.run_host(*events(1))
        attempts = re.split(ATTEMPT.format("Gate", r"(\d+)") + "\n", "\n".join(timeline.log()) + "\n")[1:]
        return timeline, [(code, lines.splitlines()) for code, lines in zip(attempts[::2], attempts[1::2])]

    def test_each_stage(self):
        rows = [[it.strip() for it in row.split("|")] for row in STAGES.strip().splitlines()]
        servers = [ScriptedServer(self, "" if stage == "greeting" else stage, action) for stage, action, *_ in rows]
        timeline, attempts = self.send([(" ".join(row[:2]), "127.0.0.1", it.port) for row, it in zip(rows, servers)])
        self.assertEqual(len(attempts), len(rows))
        self.assertIn("This message will be retried", attempts[-1][1].pop())
        for row, server, (code, lines) in zip(rows, servers, attempts):
            with self.subTest(row):
                stage, action, expected, message, reply, outcome = row
                self.assertEqual(code, expected)
                self.assertRegex(lines[0], rf"curl: \({code}\) .*{re.escape(message)}")
                self.assertRegex(lines[1], rf"SMTP reply {reply} after \d+ bytes")
                self.assertEqual(lines[2:], [SAID[outcome].format(f"{stage} {action}")] if outcome in SAID else [])
                self.assertIn(server.seen[:1], ([], [b"EHLO nvr.example.com\r\n"]))
        self.assertEqual((timeline.statuses(), len(self.spool())), ([(1, FAILED)], 1))
        for action in ("421 bye", "554 no", "drop"):  # what it says behind the mail does not matter
            timeline, attempts = self.send([("Last", "127.0.0.1", ScriptedServer(self, "QUIT", action).port)])
            self.assertEqual((attempts, timeline.statuses()), ([("0", [])], [(1, DELIVERED)]))

    def test_certificates(self):
        self.make_certificates()
        own = {"VerifyCertificates": 1, "CertificateFile": 'ca" x.pem'}
        for settings, attempts in (
                (own, [("good", "127.0.0.1", "60"), ("expired", "localhost", "60"), ("good", "localhost", "0")]),
                ({**own, "CertificateFile": "none.pem\nurl = x"}, [("good", "localhost", "77")]),
                ({"VerifyCertificates": 1}, [("good", "localhost", "60")]), ({}, [("expired", "127.0.0.1", "0")])):
            with self.subTest(settings):
                servers = [ScriptedServer(self, certificate=self.top / name) for name, _, _ in attempts]
                timeline, tried = self.send([(name, address, it.port) for (name, address, _), it in
                                             zip(attempts, servers)], 1, **settings)
                self.assertEqual([code for code, _ in tried], [code for _, _, code in attempts])
                is_sent = attempts[-1][2] == "0"
                self.assertEqual(b"QUIT\r\n" in servers[-1].seen, is_sent)
                self.assertEqual(timeline.statuses(), [(1, DELIVERED if is_sent else FAILED)])

    def make_certificates(self):
        """ca" x.pem in the host's folder has signed "good" and "expired", each key and certificate."""
        def openssl(*words):
            subprocess.run(["openssl", *words], check=True, capture_output=True, cwd=self.top)
        key = ["-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes"]
        authority = self.folder / 'ca" x.pem'
        openssl("req", "-x509", *key, "-subj", "/CN=Own", "-keyout", "ca.key", "-out", authority)
        (self.top / "names").write_text("subjectAltName = DNS:localhost")
        for name, days in (("good", 1), ("expired", -1)):
            openssl("req", *key, "-subj", "/CN=localhost", "-keyout", "key", "-out", "request")
            openssl("x509", "-req", "-in", "request", "-CA", authority, "-CAkey", "ca.key", "-days", str(days),
                    "-extfile", "names", "-out", "certificate")
            (self.top / name).write_text((self.top / "key").read_text() + (self.top / "certificate").read_text())
