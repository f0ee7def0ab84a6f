"""A mail server as people run it takes what the plug-in sends, bare line feeds and all.

OpenSMTPD wants to be started by root, users of its own and fixed folders. It gets them in a mount
namespace that ends with the test; the machine keeps its users and folders as they are.
NOTIFYPI_OPENSMTPD is the folder where script/bootstrap unpacked it.
"""
import os
import pathlib
import socket
import subprocess
import time
import unittest

import road
from road import DELIVERED, RoadTest, events, profile

UNPACKED = pathlib.Path(os.environ.get("NOTIFYPI_OPENSMTPD", ""))
NAMESPACE = ["unshare", "--mount"]

# In the namespace: $1 is the unpacked package, $2 the folder of the test.
START = r"""
id=64001
for user in opensmtpd opensmtpq mailkeeper; do
  echo "$user:x:$id:$id::/var/lib/$user:/bin/sh" >>"$2/passwd"
  echo "$user:x:$id:" >>"$2/group"
  id=$((id + 1))
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

CONFIGURATION = r"""
listen on 127.0.0.1 port {port}
table everybody {{ "@" = mailkeeper }}
action "keep" mda "cat >mail/$$.part && mv mail/$$.part mail/$$.eml" virtual <everybody>
match from any for any action "keep"
"""


def missing():
    """Why there can be no test, or None."""
    if not (UNPACKED / "usr/sbin/smtpd").exists():
        return "OpenSMTPD is not unpacked (script/bootstrap test)"
    if os.geteuid() != 0:
        return "OpenSMTPD must be started by root"
    if subprocess.run([*NAMESPACE, "mount", "-t", "tmpfs", "none", "/run"],
                      capture_output=True).returncode != 0:
        return "this machine allows no mount namespace"
    return None


@unittest.skipIf(missing(), missing())
class OpenSmtpdTest(RoadTest):
    def wait_for(self, condition):
        end = time.monotonic() + road.RUN_LIMIT
        while not condition():
            self.assertLess(time.monotonic(), end, (self.own / "log").read_text())
            time.sleep(0.05)

    def start_opensmtpd(self):
        """Returns the port."""
        self.own = self.top / "opensmtpd"
        (self.own / "mail").mkdir(parents=True)
        with socket.create_server(("127.0.0.1", 0)) as probe:
            port = probe.getsockname()[1]
        (self.own / "smtpd.conf").write_text(CONFIGURATION.format(port=port))
        with open(self.own / "log", "wb") as log:
            server = subprocess.Popen([*NAMESPACE, "sh", "-euc", START, "sh", UNPACKED, self.own],
                                      stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        self.addCleanup(server.wait)
        self.addCleanup(server.terminate)  # its processes end with it

        def answers():
            self.assertIsNone(server.poll(), (self.own / "log").read_text())
            with socket.socket() as client:
                return client.connect_ex(("127.0.0.1", port)) == 0
        self.wait_for(answers)
        return port

    def test_mail_is_taken_and_kept_as_it_is(self):
        body = ("Tür geöffnet\r\n.dot\r\n..\r\n" + "y" * 900 + "\r\n" +
                ("YmFzZTY0YmFz" * 6 + "NjQg" + "\n") * 5000 +  # lines end in LF, as in attachments
                "\n\r\nend\r\n")
        self.configure([self.start_opensmtpd()], profile(
            subject="Tür", body=body, to=["a@example.com"], bcc=["b@example.com"]))
        self.assertEqual(self.run_host(*events(1)).statuses(), [(1, DELIVERED)])
        self.wait_for(lambda: len(list(self.own.glob("mail/*.eml"))) == 2)
        recipients = set()
        for path in self.own.glob("mail/*.eml"):
            # The server adds its own lines to the header and stores lines as the system has them.
            header, _, content = path.read_bytes().partition(b"\n\n")
            lines = header.decode().split("\n")
            recipients.update(line for line in lines if line.startswith("Delivered-To:"))
            for ours in ("From: nvr@example.com", "To: a@example.com", "Subject: Tür"):
                self.assertEqual(lines.count(ours), 1, header)
            self.assertEqual(content, body.replace("\r\n", "\n").encode())
        self.assertEqual(recipients, {f"Delivered-To: {it}@example.com" for it in "ab"})


if __name__ == "__main__":
    road.main()
