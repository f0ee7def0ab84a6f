"""Mails that cannot be sent at once: they wait, in order and within limits; nothing is left over.

The plug-in's time passes many times faster than the world's, in a build that lets it.
"""
import email
import errno
import os
import pathlib
import shlex
import signal
import socket
import subprocess

import road
from road import DELIVERED, FAILED, RoadTest, event_document, notify_document, profile, smtp_server

SPEED_PLUGIN = os.environ.get("NOTIFYPI_SPEED_PLUGIN", "")

# A minute of the plug-in's in a fifth of a second.
SPEED = 300
# Longer than any test waits, in the plug-in's seconds.
FOR_EVER = "wait 1000000"

TRYING = "Retrying failed notification for file {}"
SUCCEEDED = "Retry for notification file ({}) suceeded."
TIMED_OUT = ("Retry timeout reached for notification file ({}).  Message for profile {} will be "
             "discarded")
NOT_PREPARED = "Failed to prepare email notification file. (Profile Description: {})"
LIMIT_EXCEEDED = "Maximum failed message queue limit of {} is exceeded."
PUSHED_OUT = "Message for profile {} will be discarded"
CLEARING = ("Clearing retry notifications queue. {} failed notifications will be discarded")
PURGED = "Minimum free space threshold exceeded. Message for profile {} ({}) will be discarded"
NO_ROOM = ("Unable to free up space by removing items from notification retry queue. "
           "Message ({}) for profile {} will be discarded")


def message_file(number, sequence):
    return f"./data/notify-mail-{number}-{road.EVENT_TIME}-250-{sequence}"


def configuration(servers, profiles, delta=0, **settings):
    document = notify_document(servers, profiles, delta=delta)
    words = "".join(f' {name}="{value}"' for name, value in settings.items())
    return document.replace(b' ID="786432"', b' ID="786432"' + words.encode(), 1)


class RetryTest(RoadTest):
    def setUp(self):
        super().setUp()
        if not SPEED_PLUGIN:
            self.skipTest("there is no plug-in whose clocks can be driven")
        self.port = self.free_port()
        self.mailbox = self.top / "mailbox"
        self.profiles = [profile(number, f"Gate {number}", subject=f"Alarm {number}")
                         for number in (1, 2, 3)]

    @staticmethod
    def free_port():
        with socket.create_server(("127.0.0.1", 0)) as probe:
            return probe.getsockname()[1]

    def write_configuration(self, servers=None, profiles=None, **settings):
        document = configuration(servers or [smtp_server(self.port)], profiles or self.profiles,
                                 **settings)
        (self.folder / "notify.xml").write_bytes(document)

    def start_host(self, *steps, server=(), speed=SPEED, **options):
        """The host has a mail server on self.port, unless server is None."""
        words = ["--speed", str(speed)]
        if server is not None:
            program = pathlib.Path(road.__file__).with_name("smtp_server.py")
            words += ["--mail-server", "exec " + shlex.join(
                ["/usr/bin/python3", "-B", str(program), "--port", str(self.port),
                 "--mailbox", str(self.mailbox), *server])]
        return super().start_host(*steps, options=words, plugin=SPEED_PLUGIN, limit=60, **options)

    def run_until(self, wanted, *steps, **options):
        """Runs until a happening is wanted, stops the host and returns the timeline."""
        run = self.start_host(*steps, FOR_EVER, **options)
        run.read_until(wanted)
        run.signal(signal.SIGINT)
        return self.finish_host(run)

    def script_curl(self, *calls, otherwise=f'exec {road.CURL} "$@"'):
        """./curl runs one shell script after the other; $FILE is the message that it is to send."""
        counter = self.top / "calls"
        cases = "".join(f"{number}) {script} ;;\n" for number, script in enumerate(calls, 1))
        self.replace_curl(
            f'echo >>{counter}\nwhile [ "$1" != -T ]; do set -- "$@" "$1"; shift; done\nFILE=$2\n'
            'set -- "$@" "$1" "$2"; shift 2\n'
            'while [ "$1" != --mail-from ]; do set -- "$@" "$1"; shift; done\n'
            f'case $(wc -l <{counter}) in\n{cases}*) {otherwise} ;;\nesac')

    def make_video(self):
        """Five minutes of a test picture, small and quickly fed."""
        video = self.top / "gate.mp4"
        subprocess.run(
            ["ffmpeg", "-v", "error", "-f", "lavfi", "-i",
             "testsrc2=size=160x120:rate=5:duration=300", "-c:v", "libx264", "-preset", "ultrafast",
             "-g", "5", "-pix_fmt", "yuv420p", video], check=True)
        return video

    def profiles_with_video(self):
        return [it.replace('attach="0"', 'attach="1"').replace(
            'MaxVideoSeconds="0"', 'MaxVideoSeconds="4"') for it in self.profiles]

    def received(self):
        return road.MailServer.received(self)

    def subjects(self):
        return [mail.content.split(b"\r\n")[2].decode() for mail in self.received()]

    def changes(self, timeline):
        """What became of the messages of the retry queue: what and file."""
        return [(it["what"], it["file"])
                for it in timeline.of_kind("retry") if it["what"] != "tried"]

    def assert_said(self, timeline, level, *lines):
        for line in lines:
            self.assertEqual(timeline.levels(line), [level], line)


def retry(what):
    return lambda it: it["kind"] == "retry" and it["what"] == what


def delivered(it):
    return it["kind"] == "status" and it["status"] == DELIVERED


class DeliveryTest(RetryTest):
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
        self.write_configuration(profiles=self.profiles_with_video())
        self.run_host("wait 1", server=None)
        configured = (self.folder / "notify.xml").read_bytes()
        copies = self.top / "composed"
        copies.mkdir()
        self.script_curl(otherwise=f'cp -n "$FILE" {copies}; exec {road.CURL} "$@"')
        # A clip ends at the latest with its notification's time, which the host's tick tells.
        events = [("event", event_document(1)), "wait 8", ("event", event_document(2)), "wait 8",
                  ("event", event_document(3)), "wait idle"]
        timeline = self.run_host(
            "mail-server down", f"camera 66049 h264 {self.make_video()}", "wait 5", *events,
            "mail-server up", "wait delivered 3", speed=20)
        files = [message_file(number, number - 1) for number in (1, 2, 3)]
        self.assertEqual(self.changes(timeline), [("queued", file) for file in files] +
                         [("sent", file) for file in files])
        for file in files:
            self.assert_said(timeline, road.INFORMATION, SUCCEEDED.format(file))
        self.assertEqual(self.subjects(), [f"Subject: Alarm {number}" for number in (1, 2, 3)])
        for mail in self.received():
            self.assertGreaterEqual(self.pictures_in(mail), 10)
        self.assertEqual([mail.content for mail in self.received()],
                         [(copies / pathlib.Path(file).name).read_bytes() for file in files])
        self.assertEqual(timeline.statuses(), [(1, FAILED), (2, FAILED), (3, FAILED),
                                               (1, DELIVERED), (2, DELIVERED), (3, DELIVERED)])
        self.assertEqual(self.spool(), [])
        self.assertEqual((self.folder / "notify.xml").read_bytes(), configured)

    def test_rounds_grow_apart_and_try_each_message_once(self):
        self.write_configuration()
        tried = []

        def fourth_round(it):
            if retry("tried")(it):
                tried.append(it)
            return len(tried) == 5

        self.run_until(fourth_round, ("event", event_document(1)), ("event", event_document(2)),
                       server=None, speed=SPEED / 2)
        first, second = message_file(1, 0), message_file(2, 1)
        self.assertEqual([it["file"] for it in tried], [first, second, first, second, first])
        # A second is left for what lies between a moment and its line in the timeline.
        for it, least in zip(tried[::2], (60, 180, 420)):
            self.assertGreaterEqual(it["age"], least - 1)

    def test_a_new_mail_does_not_wait_behind_those_that_could_not_be_sent(self):
        self.write_configuration([smtp_server(self.closed_port(), "Down"),
                                  smtp_server(self.port, "Up")])
        self.script_curl("exit 7", "exit 7")  # the first mail, at both servers
        timeline = self.run_host(("event", event_document(1)), ("event", event_document(2)),
                                 "wait delivered 2")
        self.assertEqual(self.subjects(), ["Subject: Alarm 2", "Subject: Alarm 1"])
        self.assertEqual(timeline.statuses(), [(1, FAILED), (2, DELIVERED), (1, DELIVERED)])


class DiscardTest(RetryTest):
    def assert_gone(self, timeline, number, file):
        self.assertIn(TRYING.format(file), timeline.log(road.INFORMATION))
        self.assert_said(timeline, road.INFORMATION, TIMED_OUT.format(file, f"Gate {number}"))
        self.assertEqual(self.changes(timeline)[:2], [("queued", file), ("discarded", file)])
        self.assertNotIn(pathlib.Path(file).name, self.spool())

    def test_login_refused_at_the_retry(self):
        self.write_configuration([smtp_server(self.port, login=("nvr", "wrong"))])
        timeline = self.run_until(
            retry("discarded"), "mail-server down", ("event", event_document(1)), "wait idle",
            "mail-server up", server=["--auth", "nvr:secret", "--require-auth"])
        self.assert_gone(timeline, 1, message_file(1, 0))
        self.assert_said(timeline, road.ERROR, road.WILL_NOT_BE_RETRIED.format("Gate 1"))
        self.assertEqual(timeline.statuses(), [(1, FAILED)])  # the first attempt's, and no other
        self.assertEqual((self.received(), self.spool()), ([], []))

    def test_older_than_max_retry_seconds(self):
        self.write_configuration(MaxRetrySeconds=100)
        timeline = self.run_until(retry("discarded"), ("event", event_document(1)), server=None)
        file = message_file(1, 0)
        # The age counts after an attempt: the one at 60 s leaves it, the one at 180 s is the last.
        self.assertEqual(timeline.log().count(TRYING.format(file)), 2)
        self.assert_said(timeline, road.INFORMATION, TIMED_OUT.format(file, "Gate 1"))
        self.assertGreaterEqual(timeline.of_kind("retry")[-1]["age"], 100)
        self.assertEqual(timeline.levels(road.WILL_NOT_BE_RETRIED.format("Gate 1")), [])
        self.assertEqual(self.spool(), [])

    def test_more_than_max_retry_queue(self):
        self.write_configuration(MaxRetryQueue=2)
        events = [("event", event_document(number)) for number in (1, 2, 3)]
        timeline = self.run_host("mail-server down", *events, "wait idle", "mail-server up",
                                 "wait delivered 2")
        self.assert_said(timeline, road.INFORMATION, LIMIT_EXCEEDED.format(2),
                         PUSHED_OUT.format("Gate 1"))
        changes = self.changes(timeline)
        self.assertEqual(changes[:4], [
            ("queued", message_file(1, 0)), ("queued", message_file(2, 1)),
            ("queued", message_file(3, 2)), ("discarded", message_file(1, 0))])
        # On a slow machine a round has begun before the third was queued, and its next comes first.
        self.assertEqual(sorted(changes[4:]), [
            ("sent", message_file(2, 1)), ("sent", message_file(3, 2))])
        self.assertEqual(sorted(self.subjects()), ["Subject: Alarm 2", "Subject: Alarm 3"])
        self.assertEqual(self.spool(), [])

    def test_configuration_change_clears_the_queue(self):
        self.write_configuration([smtp_server(self.closed_port())])
        change = configuration([smtp_server(self.port)], self.profiles, delta=1)
        timeline = self.run_host(
            ("event", event_document(1)), ("event", event_document(2)), "wait idle",
            ("update", change), ("event", event_document(3)), "wait delivered 1")
        self.assert_said(timeline, road.INFORMATION, CLEARING.format(2))
        self.assertEqual(self.subjects(), ["Subject: Alarm 3"])
        self.assertEqual(self.spool(), [])

    def test_the_spool_does_not_outlive_the_host(self):
        self.write_configuration()
        self.run_host(("event", event_document(1)), ("event", event_document(2)), server=None)
        self.assertEqual(len(self.spool()), 2)
        (self.folder / "data" / "Gate.mov").touch()
        timeline = self.run_host("wait 200")
        self.assertEqual(self.spool(), ["Gate.mov"])
        self.assertEqual((timeline.of_kind("retry"), self.received()), ([], []))


class FaultTest(RetryTest):
    """Something breaks while a message waits or is sent; the next notification works."""

    def run_through(self, *before):
        """A first message that is queued, then one that must arrive."""
        self.write_configuration()
        return self.run_host(("event", event_document(1)), "wait idle", *before,
                             ("event", event_document(2)), "wait delivered 1", "wait 200")

    def assert_second_arrived(self, timeline):
        self.assertIn("Subject: Alarm 2", self.subjects())
        self.assertIn((2, DELIVERED), timeline.statuses())
        self.assertEqual(self.spool(), [])

    def test_file_removed_behind_the_plugins_back(self):
        self.script_curl('rm "$FILE"; exit 7')
        timeline = self.run_through()
        file = message_file(1, 0)
        self.assert_said(timeline, road.WARNING, road.ATTEMPT.format("Gate 1", 26))
        self.assert_said(timeline, road.ERROR, road.WILL_NOT_BE_RETRIED.format("Gate 1"))
        self.assert_said(timeline, road.INFORMATION, TIMED_OUT.format(file, "Gate 1"))
        self.assert_second_arrived(timeline)

    def test_data_folder_removed(self):
        self.script_curl("rm -r data; exit 7")
        timeline = self.run_through()
        self.assert_said(timeline, road.WARNING, road.ATTEMPT.format("Gate 1", 26))
        self.assert_second_arrived(timeline)

    def test_data_folder_replaced_by_a_file(self):
        self.write_configuration()
        self.script_curl("rm -r data; touch data; exit 7", 'rm data; exit 0')
        timeline = self.run_host(
            ("event", event_document(1)), ("event", event_document(2)), "wait delivered 1",
            ("event", event_document(3)), "wait delivered 2")
        self.assert_said(timeline, road.ERROR,
                         f'Unable to create data directory: "{self.folder / "data"}"')
        self.assertEqual(timeline.statuses(), [(1, FAILED), (2, FAILED), (1, DELIVERED),
                                               (3, DELIVERED)])
        self.assertEqual((self.subjects(), self.spool()), (["Subject: Alarm 3"], []))

    def test_a_file_for_a_data_folder_at_the_start(self):
        self.write_configuration()
        (self.folder / "data").touch()
        timeline = self.run_host("wait 1", server=None)
        [line] = [it for it in timeline.log(road.INFORMATION)
                  if it.startswith("Exception while clearing data subdirectory: ")]
        self.assertIn("Not a directory", line)

    def test_movie_that_cannot_be_made(self):
        movie = self.folder / "data" / "Video Input 2-1.mov"
        movie.mkdir(parents=True)
        (movie / "file").touch()
        self.write_configuration(profiles=self.profiles_with_video())
        timeline = self.run_host(
            f"camera 66049 h264 {self.make_video()}", "wait 5", ("event", event_document(1)),
            "wait delivered 1", speed=20)
        self.assert_said(timeline, road.WARNING, f'Failed to open file "{movie}"for writing in '
                         f"QuickTime format. Error {errno.EISDIR}")
        self.assertIn(b'\n- Failed to prepare video attachment for source: ',
                      self.received()[0].content)
        self.assertTrue((movie / "file").exists())

    def test_curl_ended_by_a_signal(self):
        self.script_curl("ulimit -c 0; kill -SEGV $$")
        timeline = self.run_through()
        self.assert_said(timeline, road.WARNING,
                         road.ATTEMPT.format("Gate 1", 256 * signal.SIGSEGV))
        self.assert_said(timeline, road.INFORMATION, SUCCEEDED.format(message_file(1, 0)))
        self.assertEqual(sorted(self.subjects()), ["Subject: Alarm 1", "Subject: Alarm 2"])
        self.assert_second_arrived(timeline)

    def test_curl_away_for_the_retry(self):
        self.script_curl("mv curl away; exit 7")
        self.write_configuration()
        timeline = self.run_until(retry("discarded"), ("event", event_document(1)))
        self.assert_said(timeline, road.ERROR, road.NOT_EXECUTED.format("Mail server", "Gate 1"),
                         road.WILL_NOT_BE_RETRIED.format("Gate 1"))
        self.assert_said(timeline, road.INFORMATION, TIMED_OUT.format(message_file(1, 0), "Gate 1"))
        self.assertEqual(self.spool(), [])


class DiskTest(RetryTest):
    """Volumes of a size of our own."""

    def mount(self, folder, size):
        if os.geteuid() != 0:
            self.skipTest("only root can mount a volume")
        folder.mkdir(exist_ok=True)
        mounted = subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={size}", "tmpfs", folder],
                                 capture_output=True, text=True)
        if mounted.returncode != 0:
            self.skipTest("no volume can be mounted here: " + mounted.stderr.strip())
        self.addCleanup(subprocess.run, ["umount", "-l", folder], check=True)

    def test_full_while_composing(self):
        self.mount(self.folder / "data", "64k")
        self.write_configuration(profiles=[profile(1, "Gate 1", body="x" * 70_000),
                                           profile(2, "Gate 2", subject="Alarm 2")])
        timeline = self.run_host(("event", event_document(1)), ("event", event_document(2)))
        self.assert_said(timeline, road.ERROR, NOT_PREPARED.format("Gate 1"))
        self.assertEqual(timeline.statuses(), [(1, FAILED), (2, DELIVERED)])
        self.assertEqual((self.subjects(), self.spool()), (["Subject: Alarm 2"], []))

    def test_full_while_writing_movies(self):
        self.mount(self.folder / "data", "64k")
        first, second = self.profiles_with_video()[0], self.profiles[1]
        self.write_configuration(profiles=[first, second])
        timeline = self.run_host(
            f"camera 66049 h264 {self.make_video()}", "wait 5", ("event", event_document(1)),
            "wait delivered 1", ("event", event_document(2)), speed=20)
        movie = self.folder / "data" / "Video Input 2-1.mov"
        self.assert_said(timeline, road.WARNING,
                         f"Failed to write video frames to QuickTime format file {movie}")
        self.assertEqual(timeline.statuses(), [(1, DELIVERED), (2, DELIVERED)])
        self.assertIn(b'\n- Failed to prepare video attachment for source: ',
                      self.received()[0].content)
        self.assertEqual(len(self.received()), 2)
        self.assertEqual(self.spool(), [])

    def test_read_only_while_running(self):
        data = self.folder / "data"
        self.mount(data, "200m")
        self.script_curl("mount -o remount,ro data; exit 7", "mount -o remount,rw data; exit 7")
        self.write_configuration()
        timeline = self.run_host(
            ("event", event_document(1)), ("event", event_document(2)), "wait delivered 1",
            ("event", event_document(3)))
        self.assert_said(timeline, road.ERROR, NOT_PREPARED.format("Gate 2"))
        self.assertEqual(timeline.statuses(), [(1, FAILED), (2, FAILED), (1, DELIVERED),
                                               (3, DELIVERED)])
        self.assertEqual(self.subjects(), ["Subject: Alarm 1", "Subject: Alarm 3"])
        self.assertEqual(self.spool(), [])

    def test_nearly_full(self):
        # Above the 100 megabytes that are to stay free, room for one message of two, not for both.
        self.mount(self.folder / "data", "103m")
        large = "x" * (2 << 20) + "\r\n"
        profiles = [profile(1, "Gate 1", body="small"), profile(2, "Gate 2", body=large),
                    profile(3, "Gate 3", body=large, subject="Alarm 3")]
        self.write_configuration(profiles=profiles)
        timeline = self.run_host(
            "mail-server down", *[("event", event_document(number)) for number in (1, 2, 3)],
            "wait idle", "mail-server up", "wait delivered 2")
        self.assert_said(timeline, road.INFORMATION, PURGED.format("Gate 2", message_file(2, 1)))
        self.assertEqual(len([line for line in timeline.log(road.INFORMATION) if line.endswith(
            " are less than threshold of 104857600. Attempting to purge failed notifications")]), 1)
        self.assertEqual(timeline.statuses()[3:], [(1, DELIVERED), (3, DELIVERED)])
        self.assertEqual(self.spool(), [])

    def test_too_full_to_keep_anything(self):
        self.mount(self.folder / "data", "1m")
        self.write_configuration()
        timeline = self.run_host(
            "mail-server down", ("event", event_document(1)), "wait idle", "mail-server up",
            ("event", event_document(2)))
        self.assert_said(timeline, road.WARNING, NO_ROOM.format(message_file(1, 0), "Gate 1"))
        self.assertEqual((self.subjects(), self.spool()), (["Subject: Alarm 2"], []))

    def test_configuration_that_cannot_be_written(self):
        self.mount(self.folder, "64k")
        (self.folder / "curl").symlink_to(road.CURL)
        self.write_configuration()
        self.run_host("wait 1", server=None)
        before = (self.folder / "notify.xml").read_bytes()
        change = configuration([smtp_server(self.port)], [profile(2, body="x" * 70_000)], delta=1)
        back = configuration([smtp_server(self.port)], [profile(2, subject="Alarm 2")], delta=1)
        run = self.start_host(("update", change), "wait 1", ("event", event_document(1)), FOR_EVER)
        self.assertTrue(run.read_until(lambda it: it["kind"] == "status"))
        self.assertEqual((self.folder / "notify.xml").read_bytes(), before)
        run.signal(signal.SIGINT)
        self.finish_host(run)
        self.run_host(("update", back), ("event", event_document(2)), "wait delivered 1")
        self.assertEqual(self.subjects(), ["Subject: Alarm 2"])
        self.assertEqual(sorted(path.name for path in self.folder.iterdir()),
                         ["curl", "data", "notify.xml"])
        self.assertNotEqual((self.folder / "notify.xml").read_bytes(), before)


if __name__ == "__main__":
    road.main()
