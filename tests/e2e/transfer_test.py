"""Servers willing and not: how the mail goes out, and what is said when it does not."""
import pathlib
import signal
import socket
import subprocess
import tempfile

import road
from road import DELIVERED, FAILED, RoadTest, event_document, profile, smtp_server


class TransferTest(RoadTest):
    def send(self, *servers, profiles=None):
        self.configure(servers, profiles)
        return self.run_host(("event", event_document()))

    def assert_delivered(self, timeline, server):
        self.assertEqual(len(server.received()), 1, timeline.log())
        self.assertEqual(timeline.statuses(), [(1, DELIVERED)])
        self.assertEqual(self.spool(), [])

    def assert_kept_for_retry(self, timeline):
        self.assertEqual(timeline.levels(road.WILL_BE_RETRIED.format("Gate")), [road.ERROR])
        self.assertEqual(timeline.levels(road.WILL_NOT_BE_RETRIED.format("Gate")), [])
        self.assertEqual(timeline.statuses(), [(1, FAILED)])
        self.assertEqual(self.spool(), [f"notify-mail-1-{road.EVENT_TIME}-250-0"])

    def assert_given_up(self, timeline):
        self.assertEqual(timeline.levels(road.WILL_NOT_BE_RETRIED.format("Gate")), [road.ERROR])
        self.assertEqual(timeline.levels(road.WILL_BE_RETRIED.format("Gate")), [])
        self.assertEqual(timeline.statuses(), [(1, FAILED)])
        self.assertEqual(self.spool(), [])

    def attempts(self, timeline):
        """Exit values of the transfers, in order, each told at the level it deserves."""
        words = road.ATTEMPT.format("Gate", "")
        lines = [it for it in timeline.of_kind("log") if it["text"].startswith(words)]
        values = [int(it["text"][len(words):]) for it in lines]
        self.assertEqual([it["level"] for it in lines],
                         [road.WARNING if value else road.INFORMATION for value in values])
        return values


class TlsTest(TransferTest):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="notifypi-e2e-")
        cls.addClassCleanup(folder.cleanup)
        cls.certificate = pathlib.Path(folder.name)
        subprocess.run(
            ["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj",
             "/CN=localhost", "-keyout", cls.certificate / "key.pem",
             "-out", cls.certificate / "certificate.pem"], check=True, capture_output=True)

    def start_tls_server(self, *options):
        return self.start_server("--certificate", str(self.certificate), *options)

    def test_tls_from_the_first_byte(self):
        server = self.start_tls_server("--smtps")
        timeline = self.send(smtp_server(server.port, tls=1))
        self.assert_delivered(timeline, server)
        self.assertTrue(server.received()[0].tls)

    def test_starttls_with_login(self):
        server = self.start_tls_server("--starttls", "--auth", "nvr:secret", "--require-auth")
        timeline = self.send(smtp_server(server.port, tls=2, login=("nvr", "secret")))
        self.assert_delivered(timeline, server)
        self.assertTrue(server.received()[0].tls)
        self.assertEqual(server.received()[0].user, "nvr")

    def test_no_mail_in_the_clear_where_tls_is_asked_for(self):
        server = self.start_server()
        for tls, value in ((2, 64), (1, 35)):
            with self.subTest(tls=tls):
                timeline = self.send(smtp_server(server.port, tls=tls))
                self.assertEqual(self.attempts(timeline), [value])
                self.assert_kept_for_retry(timeline)
                self.assertEqual(server.received(), [])


class LoginTest(TransferTest):
    def test_login_is_used_and_never_on_the_command_line(self):
        server = self.start_server("--auth", "nvr:secret", "--require-auth")
        timeline = self.send(smtp_server(server.port, login=("nvr", "secret")))
        self.assert_delivered(timeline, server)
        self.assertEqual(server.received()[0].user, "nvr")
        self.assertEqual(timeline.transfers(), [[
            "./curl", "--mail-from", "nvr@example.com", "--mail-rcpt", "guard@example.com",
            "--insecure", "--connect-timeout", "60", "--config", "-",
            "-T", f"./data/notify-mail-1-{road.EVENT_TIME}-250-0",
            f"smtp://127.0.0.1:{server.port}"]])
        self.assertNotIn("secret", str(timeline.happenings))

    def test_refused_login_is_final(self):
        server = self.start_server("--auth", "nvr:secret", "--require-auth")
        timeline = self.send(smtp_server(server.port, login=("nvr", "wrong")))
        self.assertEqual(self.attempts(timeline), [67])
        self.assert_given_up(timeline)
        self.assertEqual(server.received(), [])

    def test_next_server_is_tried_behind_a_refused_login(self):
        strict = self.start_server("--auth", "nvr:secret", "--require-auth")
        second = self.start_server()
        timeline = self.send(smtp_server(strict.port, login=("nvr", "wrong")), second.port)
        self.assertEqual(self.attempts(timeline), [67, 0])
        self.assert_delivered(timeline, second)

    def test_one_temporary_failure_keeps_the_mail(self):
        strict = self.start_server("--auth", "nvr:secret", "--require-auth")
        refusing = smtp_server(strict.port, login=("nvr", "wrong"))
        down = smtp_server(self.closed_port())
        for servers, values in (([down, refusing], [7, 67]), ([refusing, down], [67, 7])):
            with self.subTest(values=values):
                timeline = self.send(*servers)
                self.assertEqual(self.attempts(timeline), values)
                self.assert_kept_for_retry(timeline)


class RefusalTest(TransferTest):
    def test_server_down(self):
        timeline = self.send(self.closed_port())
        self.assertEqual(self.attempts(timeline), [7])
        self.assert_kept_for_retry(timeline)
        # The spool does not outlive the host: the next start sweeps it, and sends nothing of it.
        timeline = self.run_host("wait 0.2")
        self.assertEqual(self.spool(), [])
        self.assertEqual(timeline.transfers(), [])

    def test_second_server_steps_in_and_a_third_is_not_bothered(self):
        second, third = self.start_server(), self.start_server()
        timeline = self.send(self.closed_port(), second.port, third.port)
        self.assertEqual(self.attempts(timeline), [7, 0])
        self.assert_delivered(timeline, second)
        self.assertEqual(third.received(), [])

    def test_refusals_of_a_running_server_are_temporary(self):
        cases = {
            "recipient": (["--refuse-rcpt", "guard@example.com"], 55),
            "one of two recipients": (["--refuse-rcpt", "second@example.com=450"], 55),
            "sender": (["--refuse-mail", "552"], 55),
            "message": (["--refuse-data", "554"], 8),
            "message, for now": (["--fail-first", "1"], 8),
        }
        for name, (options, value) in cases.items():
            with self.subTest(name):
                server = self.start_server(*options)
                timeline = self.send(server.port, profiles=[
                    profile(to=["guard@example.com", "second@example.com"])])
                self.assertEqual(self.attempts(timeline), [value])
                self.assert_kept_for_retry(timeline)
                self.assertEqual(server.received(), [])

    def test_no_server_at_all(self):
        timeline = self.send()
        self.assertEqual(timeline.transfers(), [])
        self.assert_given_up(timeline)


class SpoolTest(TransferTest):
    def setUp(self):
        super().setUp()
        self.server = self.start_server()
        self.data = self.folder / "data"

    def test_only_messages_of_the_last_run_are_swept(self):
        (self.data / "notify-mail-folder").mkdir(parents=True)
        for name in ("notify-mail-1-2-3-4", "notify-mail-", "other", "not-notify-mail-1"):
            (self.data / name).touch()
        timeline = self.send(self.server.port)
        self.assertEqual(timeline.statuses(), [(1, DELIVERED)])
        self.assertEqual(self.spool(), ["not-notify-mail-1", "notify-mail-folder", "other"])

    def test_no_folder_can_be_made(self):
        self.data.touch()
        timeline = self.send(self.server.port)
        self.assertEqual(timeline.levels(f'Unable to create data directory: "{self.data}"'),
                         [road.ERROR])
        self.assertEqual(timeline.statuses(), [(1, FAILED)])
        self.assertEqual(timeline.transfers(), [])

    def test_message_cannot_be_written(self):
        self.data.mkdir()
        path = self.data / f"notify-mail-1-{road.EVENT_TIME}-250-0"
        for name in ("a folder in its place", "the disk is full"):
            with self.subTest(name):
                if name == "the disk is full":
                    path.symlink_to("/dev/full")
                else:
                    path.mkdir()
                timeline = self.send(self.server.port)
                self.assertEqual(timeline.levels("Failed to prepare email notification file. "
                                                 "(Profile Description: Gate)"), [road.ERROR])
                self.assertEqual(timeline.statuses(), [(1, FAILED)])
                self.assertEqual(timeline.transfers(), [])
                self.assertEqual(self.spool(), [])


class CurlTest(TransferTest):
    """What goes wrong with the program itself."""

    def test_missing(self):
        (self.folder / "curl").unlink()
        server = self.start_server()
        timeline = self.send(smtp_server(server.port, description="First"),
                             smtp_server(server.port, description="Second"))
        failed = [it["text"] for it in timeline.of_kind("log") if it["level"] == road.ERROR]
        self.assertEqual(failed, [road.NOT_EXECUTED.format("First", "Gate"),
                                  road.NOT_EXECUTED.format("Second", "Gate"),
                                  road.WILL_NOT_BE_RETRIED.format("Gate")])
        self.assert_given_up(timeline)
        # No probe, no promise: TLS is not offered to users.
        self.assertFalse(timeline.of_kind("config")[0]["smtps"])
        self.assertNotIn(b"SSL=\"2\"", (self.folder / "notify.xml").read_bytes())

    def test_without_smtps(self):
        server = self.start_server()
        self.replace_curl(f'exec {road.CURL} "$@"', version="echo Protocols: smtp")
        timeline = self.send(server.port)
        self.assertFalse(timeline.of_kind("config")[0]["smtps"])
        self.assert_delivered(timeline, server)

    def test_ended_by_a_signal(self):
        for number in (signal.SIGKILL, signal.SIGSEGV):
            with self.subTest(number):
                self.replace_curl(f"ulimit -c 0; kill -{int(number)} $$")
                timeline = self.send(1)
                self.assertEqual(self.attempts(timeline), [256 * number])
                self.assert_kept_for_retry(timeline)

    def test_output_of_a_failure_is_told_and_of_a_success_not(self):
        for value in (7, 0):
            with self.subTest(value):
                self.replace_curl("printf 'one\\r\\ntwo %%s %%n\\n\\nlast'; echo no >&2\n"
                                  f"exit {value}")
                lines = self.send(1).log(road.INFORMATION)
                told = [line for line in lines if line in ("one", "two %s %n", "", "last", "no")]
                self.assertEqual(told, ["one", "two %s %n", "", "last"] if value else [])

    def test_floods_of_output(self):
        floods = {
            "megabytes in one line": "head -c 4000000 /dev/zero | tr '\\0' x",
            "binary": "head -c 1000000 /dev/urandom",
            "many lines": "yes line | head -n 20000",
            "both streams": "head -c 1000000 /dev/zero >&2; head -c 1000000 /dev/zero",
        }
        for name, command in floods.items():
            with self.subTest(name):
                self.replace_curl(f"{command}; exit 7")
                timeline = self.send(1)
                self.assertEqual(self.attempts(timeline), [7])
                self.assert_kept_for_retry(timeline)

    def test_host_stops_while_a_transfer_hangs(self):
        # A server that never greets: curl would wait for minutes.
        silent = socket.create_server(("127.0.0.1", 0))
        self.addCleanup(silent.close)
        self.configure([silent.getsockname()[1]])
        run = self.start_host(("event", event_document()), ("event", event_document()))
        self.assertTrue(run.read_until(
            lambda it: it["kind"] == "launch" and it["arguments"] != ["./curl", "-V"]))
        run.signal(signal.SIGINT)
        timeline = self.finish_host(run)
        self.assertEqual(timeline.happenings[-1]["text"], "unloaded")
        self.assertEqual(len(timeline.transfers()), 1)  # the second event is dropped unsent
        self.assertEqual(self.spool(), [])


if __name__ == "__main__":
    road.main()
