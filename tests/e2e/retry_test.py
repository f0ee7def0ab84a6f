"""Mails that cannot be sent at once: they wait, in order and within limits; nothing is left over."""
import road
from road import DELIVERED, FAILED, SpeedTest, events, notify_document, profile


class RetryTest(SpeedTest):
    def test_a_new_mail_waits_for_one_retry_at_most(self):
        super().configure([self.port], *map(profile, (1, 2, 3)))
        # The first mail's retry is accepted once it has been asked to be.
        self.replace_curl('FILE=$(echo "$@" | sed "s/.* -T //; s/ .*//")\n'
                          'case $FILE in *mail-3-*) exit 0 ;; esac\n'
                          '[ -e "$FILE.tried" ] || { touch "$FILE.tried"; exit 7; }\n'
                          'until [ -e asked ]; do sleep 0.2; done; rm "$FILE.tried"')
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
