"""Mails that cannot be sent at once do not hold up those that come."""
from road import DELIVERED, SpeedTest, events, profile


class RetryTest(SpeedTest):
    def test_a_new_mail_waits_for_one_retry_at_most(self):
        super().configure([self.port], *map(profile, (1, 2, 3)))
        # The first mail's retry is accepted once it has been asked to be.
        self.replace_curl('FILE=$(echo "$@" | sed "s/.* -T //; s/ .*//")\n'
                          'case $FILE in *mail-3-*) exit 0 ;; esac\n'
                          '[ -e "$FILE.tried" ] || { touch "$FILE.tried"; exit 7; }\n'
                          'until [ -e asked ]; do sleep 0.2; done; rm "$FILE.tried"')
        run = self.start_host(*events(1, 2), "wait idle", "wait 90", *events(3), "wait delivered 3", speed=60)
        run.read_until(3, text="event document")
        (self.folder / "asked").touch()
        statuses = run.finish().statuses()
        self.assertEqual(len(statuses), 5)
        self.assertLess(statuses.index((3, DELIVERED)), statuses.index((2, DELIVERED)))
