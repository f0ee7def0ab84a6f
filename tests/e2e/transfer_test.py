"""Servers willing and not, and real exit values of curl: how mail goes out, or what is said."""
import socket

import road
from road import DELIVERED, FAILED, RoadTest, events, profile, smtp_server

WILL_NOT_BE_RETRIED = ("Failed to send notification using profile Gate.  This message will NOT be retried due to "
                       "failure return codes 67 or 26 or due to failures to prepare or initiate email operation")
WILL_BE_RETRIED = "Failed to send notification using profile Gate.  This message will be retried"

# What would end a word of curl's configuration, or begin an option there.
LOGIN = ('n"v\\r', ' :"pa\\ss\\\\"\t\r\noutput = "injected"\n\\n $(touch injected) &#x41; ä\udce4')


class TransferTest(RoadTest):
    def send(self, *servers):
        self.configure(servers)
        return self.run_host(*events(1))

    def attempts(self, timeline):
        """Exit values of the transfers, in order."""
        words = road.ATTEMPT.format("Gate", "")
        return [int(it.removeprefix(words)) for it in timeline.log() if it.startswith(words)]

    def assert_delivered(self, timeline, server, tls, user=None, count=1):
        self.assertEqual([(it.tls, it.user) for it in server.received()], [(tls, user)] * count)
        self.assertEqual((timeline.statuses(), self.spool()), ([(1, DELIVERED)], []))

    def assert_failed(self, timeline, is_retried):
        self.assertEqual(timeline.levels(WILL_BE_RETRIED), [road.ERROR] * is_retried)
        self.assertEqual(timeline.levels(WILL_NOT_BE_RETRIED), [road.ERROR] * (not is_retried))
        self.assertEqual(timeline.statuses(), [(1, FAILED)])
        self.assertEqual(len(self.spool()), is_retried)

    def test_tls_and_a_login_as_it_is_and_never_on_the_command_line(self):
        for tls, (options, login) in enumerate((
                ([], LOGIN), (["--tls", "smtps"], ("nvr", "secret")), (["--tls", "starttls"], ("nvr", "secret")))):
            server = self.start_server(*options, "--auth", ":".join(login))
            self.configure([smtp_server(server.port, tls=tls, login=login)])
            # Twice: what the first run wrote to notify.xml is what the second one reads.
            for count in (1, 2):
                timeline = self.run_host(*events(1))
                self.assert_delivered(timeline, server, tls > 0, login[0], count)
                self.assertNotRegex(str(timeline.happenings), "touch|secret")
        self.assertEqual([*self.folder.glob("*inj*")], [])

    def test_servers_are_tried_in_order_until_one_takes_the_mail(self):
        last, unused = self.start_server(), self.start_server()
        login = smtp_server(self.start_server("--auth", "u:p").port, login=("u", "wrong"))
        refusing = [self.start_server("--refuse", it).port for it in ("RCPT", "DATA")]
        down = self.closed_port()
        timeline = self.send(login, *refusing, down, last.port, unused.port)
        self.assertEqual(self.attempts(timeline), [67, 55, 8, 7, 0])
        self.assert_delivered(timeline, last, False)
        # No mail in the clear where TLS is asked for.
        no_tls = [smtp_server(unused.port, tls=it) for it in (2, 1)]
        for servers, values in (([login, *refusing], [67, 55, 8]), ([login, login], [67, 67]), (no_tls, [64, 35])):
            with self.subTest(values):
                timeline = self.send(*servers)
                self.assertEqual(self.attempts(timeline), values)
                self.assert_failed(timeline, values != [67, 67])
        self.assertEqual(unused.received(), [])

    def test_tls_is_offered_only_with_a_curl_that_has_it(self):
        self.assertTrue(self.run_host("wait 0.05").of_kind("config")[0]["smtps"])
        (self.folder / "curl").unlink()
        timeline = self.send(smtp_server(1, "First"))
        self.assertFalse(timeline.of_kind("config")[0]["smtps"])
        self.assertEqual(timeline.log(road.ERROR), [
            "Failed to execute curl smtp operation using server First. (Profile Description: Gate)", WILL_NOT_BE_RETRIED])
        self.assert_failed(timeline, False)

    def test_host_stops_while_a_transfer_hangs(self):
        # A server that never greets: curl would wait for minutes.
        silent = self.enterContext(socket.create_server(("127.0.0.1", 0)))
        self.configure([silent.getsockname()[1]], profile(1), profile(2))
        run = self.start_host(*events(1, 2))
        run.read_until(kind="launch", arguments="['./curl', '--mail-from'")
        timeline = run.finish(is_stopped=True)
        self.assertEqual(timeline.happenings[-1]["text"], "unloaded")
        self.assertEqual(len(timeline.transfers()), 1)  # the second event is dropped unsent
        self.assertEqual(self.spool(), [])
