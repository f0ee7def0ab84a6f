"""Mails that cannot be sent at once: they wait, in order and within limits; nothing is left over.

The plug-in's time passes many times faster than the world's, in a build that lets it.
"""
import email
import os
import pathlib
import signal
import subprocess

import road
from road import DELIVERED, FAILED, SpeedTest, events, notify_document, profile

NOTE = b"\n- Failed to prepare video attachment for source: "


def message_file(number, sequence):
    return f"./data/notify-mail-{number}-{road.EVENT_TIME}-250-{sequence}"


class RetryTest(SpeedTest):
    VIDEO = {"attach": 1, "MaxVideoSeconds": 4}

    def configure(self, *profiles, **attributes):
        profiles = profiles or [profile(it, f"Gate {it}", subject=f"Alarm {it}", **attributes)
                                for it in (1, 2, 3)]
        super().configure([self.port], *profiles)

    def script_curl(self, attempts, otherwise=f'exec {road.CURL} "$@"'):
        """./curl runs these shell scripts, by profile and count of the attempt; $FILE is the
        message that it is to send."""
        calls = self.top / "calls"
        cases = "".join(f"{number}-{count}) {script} ;;\n"
                        for (number, count), script in attempts.items())
        self.replace_curl('FILE=$(echo "$@" | sed "s/.* -T //; s/ .*//")\nNUMBER=${FILE#*mail-}\n'
                          f'NUMBER=${{NUMBER%%-*}}\necho "$FILE" >>{calls}\ncase '
                          f'$NUMBER-$(grep -c "$FILE" {calls}) in\n{cases}*) {otherwise} ;;\nesac')

    def camera(self):
        video = road.make_video(self.top / "gate.mp4", "libx264", "-preset", "ultrafast")
        return [f"camera 66049 h264 {video}", "wait 5"]

    def mount(self, folder, size):
        """A volume of its own for the folder."""
        if os.geteuid() != 0:
            self.skipTest("only root can mount a volume")
        folder.mkdir(exist_ok=True)
        mounted = subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={size}", "tmpfs", folder],
                                 capture_output=True, text=True)
        if mounted.returncode != 0:
            self.skipTest("no volume can be mounted here: " + mounted.stderr.strip())
        self.addCleanup(subprocess.run, ["umount", "-l", folder], check=True)

    def subjects(self):
        return road.subjects(self.received())

    def changes(self, timeline):
        """What became of the messages of the retry queue: what and file."""
        return [(it["what"], it["file"])
                for it in timeline.of_kind("retry") if it["what"] != "tried"]

    def pictures_in(self, mail):
        """How many pictures a player finds in the only attachment."""
        [movie] = [part for part in email.message_from_bytes(mail.content).walk()
                   if part.get_content_type() == "video/quicktime"]
        probe = subprocess.run(
            ["ffprobe", "-v", "error", "-count_frames", "-show_entries", "stream=nb_read_frames",
             "-of", "csv=p=0", "-"], input=movie.get_payload(decode=True), capture_output=True)
        self.assertEqual(probe.stderr, b"")
        return int(probe.stdout)

    def test_mails_arrive_in_order_once_the_server_is_back(self):
        self.configure(**self.VIDEO)
        copies = self.top / "composed"
        copies.mkdir()
        self.script_curl({}, f'cp -n "$FILE" {copies}; [ -e up ] || exit 7; exec {road.CURL} "$@"')
        # A clip ends at the latest with its notification's time, which the host's tick tells.
        run = self.start_host(*self.camera(), *events(1, 2, 3), "wait delivered 3", speed=12)
        for _ in range(3):
            run.read_until(lambda it: it["kind"] == "retry" and it["what"] == "queued")
        (self.folder / "up").touch()
        timeline = run.finish()
        files = [message_file(number, number - 1) for number in (1, 2, 3)]
        self.assertEqual(self.changes(timeline), [("queued", file) for file in files] +
                         [("sent", file) for file in files])
        self.assertEqual(self.subjects(), ["Alarm 1", "Alarm 2", "Alarm 3"])
        for mail, file in zip(self.received(), files):
            self.assertGreaterEqual(self.pictures_in(mail), 10)
            self.assertEqual(mail.content, (copies / pathlib.Path(file).name).read_bytes())
        self.assertEqual(timeline.statuses(), [(1, FAILED), (2, FAILED), (3, FAILED),
                                               (1, DELIVERED), (2, DELIVERED), (3, DELIVERED)])
        self.assertEqual(self.spool(), [])

    def test_a_new_mail_waits_for_one_retry_at_most(self):
        self.configure()
        self.script_curl({(1, 1): "exit 7", (2, 1): "exit 7",
                          (1, 2): "until [ -e asked ]; do sleep 0.2; done; exit 0"})
        run = self.start_host(*events(1, 2), "wait idle", "wait 90", *events(3), "wait delivered 3",
                              speed=60)
        for _ in range(3):
            run.read_until(lambda it: it.get("text", "").startswith("event document"))
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
            (what, message_file(number, number - 1))
            for what, number in (("queued", 1), ("queued", 2), ("discarded", 1), ("sent", 2))])
        for value, number in (7, 1), (26, 1), (256 * signal.SIGSEGV, 2):
            self.assertEqual(timeline.levels(road.ATTEMPT.format(f"Gate {number}", value)),
                             [road.WARNING])
        self.assertEqual(timeline.statuses(), [(1, FAILED), (2, FAILED), (2, DELIVERED)])
        self.assertEqual((self.subjects(), self.spool()), (["Alarm 2"], []))

    def test_full_while_composing_and_while_writing_movies(self):
        self.mount(self.folder / "data", "64k")
        self.configure(profile(1, "Gate 1", body="x" * 70_000), profile(2, **self.VIDEO),
                       profile(3))
        timeline = self.run_host(*self.camera(), *events(1, 2, 3), "wait delivered 2", speed=20)
        movie = self.folder / "data" / "Video Input 2-1.mov"
        self.assertEqual(timeline.levels(road.NOT_PREPARED.format("Gate 1")), [road.ERROR])
        self.assertEqual(timeline.levels(
            f"Failed to write video frames to QuickTime format file {movie}"), [road.WARNING])
        self.assertEqual(sorted(timeline.statuses()),
                         [(1, FAILED), (2, DELIVERED), (3, DELIVERED)])
        self.assertEqual(sorted(NOTE in mail.content for mail in self.received()), [False, True])
        self.assertEqual(self.spool(), [])

    def test_nearly_full_while_mails_wait(self):
        # Above the 100 megabytes that are to stay free, room for one message of two, not for both.
        self.mount(self.folder / "data", "103m")
        large = "x" * (2 << 20) + "\r\n"
        self.configure(profile(1), profile(2, "Gate 2", body=large), profile(3, body=large))
        timeline = self.run_host("mail-server down", *events(1, 2, 3), "wait idle",
                                 "mail-server up", "wait delivered 2")
        self.assertEqual(timeline.levels(
            "Minimum free space threshold exceeded. Message for profile Gate 2 "
            f"({message_file(2, 1)}) will be discarded"), [road.INFORMATION])
        self.assertEqual(timeline.statuses()[3:], [(1, DELIVERED), (3, DELIVERED)])
        self.assertEqual(self.spool(), [])

    def test_configuration_that_cannot_be_written(self):
        self.mount(self.folder, "64k")
        (self.folder / "curl").symlink_to(road.CURL)
        self.configure()
        self.run_host("wait 1")
        before = (self.folder / "notify.xml").read_bytes()
        large = notify_document([self.port], [profile(2, body="x" * 70_000)], delta=1)
        self.run_host(("update", large), *events(2), "wait idle")
        self.assertEqual((self.folder / "notify.xml").read_bytes(), before)
        self.assertEqual({path.name for path in self.folder.iterdir()},
                         {"curl", "data", "notify.xml"})


if __name__ == "__main__":
    road.main()
