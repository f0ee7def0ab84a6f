"""A mail server as people run it takes what the plug-in sends, bare line feeds and all.

OpenSMTPD, which script/bootstrap unpacks to NOTIFYPI_OPENSMTPD, wants root, users of its own and
fixed folders. It gets them in a mount namespace that ends with the test.
"""
import os
import pathlib
import socket
import subprocess
import time
import unittest

import road
from road import DELIVERED, RoadTest, events, profile, smtp_server

UNPACKED = pathlib.Path(os.environ.get("NOTIFYPI_OPENSMTPD", ""))
NAMESPACE = ["unshare", "--mount"]
IS_POSSIBLE = (UNPACKED / "usr/sbin/smtpd").exists() and not subprocess.run(
    [*NAMESPACE, "mount", "-t", "tmpfs", "none", "/run"], capture_output=True).returncode

# An address of this process's own, whose ports are nobody else's.
ADDRESS = f"127.77.{os.getpid() >> 8 & 255}.{os.getpid() & 255}"
PORT = 2525

# In the namespace: $1 is the unpacked package, $2 the folder of the test.
START = r"""
for user in opensmtpd:x:64001 opensmtpq:x:64002 mailkeeper:x:64003; do
  echo "$user:${user#*x:}::/var/lib/${user%%:*}:/bin/sh" >>"$2/passwd"
  echo "$user:" >>"$2/group"
done
for file in passwd group; do
  cat /etc/$file >>"$2/$file"
  chmod 644 "$2/$file"
  mount --bind "$2/$file" /etc/$file
done
for folder in /run /var/lib /var/spool /usr/libexec; do
  mount -t tmpfs -o mode=755 none $folder
done
mkdir -p /var/lib/opensmtpd/empty /usr/libexec/opensmtpd /var/lib/mailkeeper/mail
mkdir -m 711 /var/spool/smtpd
mount --bind "$1/usr/libexec/opensmtpd" /usr/libexec/opensmtpd
mount --bind "$2/mail" /var/lib/mailkeeper/mail
chown -R mailkeeper /var/lib/mailkeeper
LD_LIBRARY_PATH=$(echo "$1"/usr/lib/*-linux-gnu) exec "$1/usr/sbin/smtpd" -d -f "$2/smtpd.conf"
"""

CONFIGURATION = rf"""
listen on {ADDRESS} port {PORT}
table everybody {{ "@" = mailkeeper }}
action "keep" mda "cat >mail/$$.part && mv mail/$$.part mail/$$.eml" virtual <everybody>
match from any for any action "keep"
"""


@unittest.skipUnless(IS_POSSIBLE, "wants root, a mount namespace, and script/bootstrap test")
class OpenSmtpdTest(RoadTest):
    def wait_for(self, condition):
        end = time.monotonic() + road.RUN_LIMIT
        while not condition():
            self.assertLess(time.monotonic(), end)
            time.sleep(0.05)

    def test_mail_is_taken_and_kept_as_it_is(self):
        own = self.top / "opensmtpd"
        (own / "mail").mkdir(parents=True)
        (own / "smtpd.conf").write_text(CONFIGURATION)
        server = subprocess.Popen([*NAMESPACE, "sh", "-euc", START, "sh", UNPACKED, own])
        self.addCleanup(server.wait)
        self.addCleanup(server.terminate)  # its processes end with it
        with socket.socket() as client:
            self.wait_for(lambda: client.connect_ex((ADDRESS, PORT)) == 0)

        body = ("Tür geöffnet\r\n.dot\r\n..\r\n" + "y" * 900 + "\r\n" +
                ("YmFzZTY0YmFz" * 6 + "NjQg" + "\n") * 5000 +  # lines end in LF, as in attachments
                "\n\r\nend\r\n")
        self.configure([smtp_server(PORT, address=ADDRESS)], profile(
            subject="Tür", body=body, to=["a@example.com"], bcc=["b@example.com"]))
        self.assertEqual(self.run_host(*events(1)).statuses(), [(1, DELIVERED)])
        self.wait_for(lambda: len(list(own.glob("mail/*.eml"))) == 2)
        recipients = set()
        for path in own.glob("mail/*.eml"):
            # The server adds its own lines to the header and stores lines as the system has them.
            header, _, content = path.read_bytes().decode().partition("\n\n")
            lines = header.split("\n")
            recipients.update(line for line in lines if line.startswith("Delivered-To:"))
            for ours in ("From: nvr@example.com", "To: a@example.com", "Subject: Tür"):
                self.assertEqual(lines.count(ours), 1, header)
            self.assertEqual(content, body.replace("\r\n", "\n"))
        self.assertEqual(recipients, {"Delivered-To: a@example.com", "Delivered-To: b@example.com"})
