"""Mails that cannot be sent at once: they wait, in order and within limits; nothing is left over."""
import pathlib
import signal

import road
from road import DELIVERED, FAILED, SpeedTest, events, notify_document, profile


def message_file(number):
    return f"./data/notify-mail-{number}-{road.EVENT_TIME}-250-{number - 1}"


class RetryTest(SpeedTest):
    def configure(self, **attributes):
        super().configure([self.port], *[
            profile(it, f"Gate {it}", subject=f"Alarm {it}", **attributes) for it in (1, 2, 3)])

    def script_curl(self, attempts, otherwise=f'exec {road.CURL} "$@"'):
        """./curl runs these shell scripts, by profile and count of the attempt, on a $FILE."""
        calls = self.top / "calls"
        cases = "".join(f"{number}-{count}) {script} ;;\n"
                        for (number, count), script in attempts.items())
        self.replace_curl('FILE=$(echo "$@" | sed "s/.* -T //; s/ .*//")\nNUMBER=${FILE#*mail-}\n'
                          f'NUMBER=${{NUMBER%%-*}}\necho "$FILE" >>{calls}\ncase '
                          f'$NUMBER-$(grep -c "$FILE" {calls}) in\n{cases}*) {otherwise} ;;\nesac')

    def changes(self, timeline):
        """What became of the messages of the retry queue: what and file."""
        return [(it["what"], it["file"])
                for it in timeline.of_kind("retry") if it["what"] != "tried"]

    def test_mails_arrive_in_order_once_the_server_is_back(self):
        self.configure(attach=1, MaxVideoSeconds=4)
        copies = self.top / "composed"
        copies.mkdir()
        self.script_curl({}, f'cp -n "$FILE" {copies}; [ -e up ] || exit 7; exec {road.CURL} "$@"')
        video = road.make_video(self.top / "gate.mp4", "libx264", "-preset", "ultrafast")
        # A clip ends at the latest with its notification's time, which the host's tick tells.
        run = self.start_host(f"camera 66049 h264 {video}", "wait 5", *events(1, 2, 3),
                              "wait delivered 3", speed=12)
        run.read_until(3, kind="retry", what="queued")
        (self.folder / "up").touch()
        timeline = run.finish()
        files = [message_file(number) for number in (1, 2, 3)]
        self.assertEqual(self.changes(timeline),
                         [(what, file) for what in ("queued", "sent") for file in files])
        self.assertEqual(road.subjects(self.received()), ["Alarm 1", "Alarm 2", "Alarm 3"])
        for mail, file in zip(self.received(), files):
            self.assertGreater(len(mail.content.partition(b"video/quicktime")[2]), 10_000)
            self.assertEqual(mail.content, (copies / pathlib.Path(file).name).read_bytes())
        self.assertEqual(timeline.statuses(), [
            (number, status) for status in (FAILED, DELIVERED) for number in (1, 2, 3)])
        self.assertEqual(self.spool(), [])

    def test_a_new_mail_waits_for_one_retry_at_most(self):
        self.configure()
        self.script_curl({(1, 1): "exit 7", (2, 1): "exit 7",
                          (1, 2): "until [ -e asked ]; do sleep 0.2; done; exit 0"})
        run = self.start_host(*events(1, 2), "wait idle", "wait 90", *events(3), "wait delivered 3",
                              speed=60)
        run.read_until(3, text="event document")
        (self.folder / "asked").touch()
        statuses = run.finish().statuses()
        self.assertEqual(len(statuses), 5)
        self.assertLess(statuses.index((3, DELIVERED)), statuses.index((2, DELIVERED)))

    def test_configuration_change_and_end_of_the_host_clear_the_queue(self):
        super().configure([self.closed_port()])
        change = notify_document([self.port], [profile(3)], delta=1)
        timeline = self.run_host(*events(1, 1), "wait idle", ("update", change), *events(3),
                                 "wait delivered 1")
        self.assertEqual(timeline.levels("Clearing retry notifications queue. 2 failed "
                                         "notifications will be discarded"), [road.INFORMATION])
        self.assertEqual((len(self.received()), self.spool()), (1, []))
        # What is in the spool at the end is of no use to anybody: the next start sweeps it.
        timeline = self.run_host("mail-server down", *events(3))
        self.assertEqual((timeline.statuses(), len(self.spool())), ([(3, FAILED)], 1))
        (self.folder / "data" / "Gate.mov").touch()
        timeline = self.run_host("wait 200")
        self.assertEqual((self.spool(), timeline.transfers()), (["Gate.mov"], []))

    def test_files_that_vanish_and_a_program_that_crashes(self):
        self.configure()
        self.script_curl({(1, 1): "rm -r data; exit 7", (2, 1): "ulimit -c 0; kill -SEGV $$"})
        timeline = self.run_host(*events(1, 2), "wait delivered 1", "wait 200")
        self.assertEqual(self.changes(timeline), [
            (what, message_file(number))
            for what, number in (("queued", 1), ("queued", 2), ("discarded", 1), ("sent", 2))])
        for value, number in (7, 1), (26, 1), (256 * signal.SIGSEGV, 2):
            self.assertEqual(timeline.levels(road.ATTEMPT.format(f"Gate {number}", value)),
                             [road.WARNING])
        self.assertEqual(timeline.statuses(), [(1, FAILED), (2, FAILED), (2, DELIVERED)])
        self.assertEqual((road.subjects(self.received()), self.spool()), (["Alarm 2"], []))
