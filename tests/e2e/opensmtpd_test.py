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

import road
from road import DELIVERED, RoadTest, event_document, profile

UNPACKED = pathlib.Path(os.environ.get("NOTIFYPI_OPENSMTPD", ""))
NAMESPACE = ["unshare", "--mount"]

# In the namespace: $1 is the unpacked package, $2 the folder of the test.
START = r"""
cp /etc/passwd /etc/group "$2"
chmod 644 "$2/passwd" "$2/group"
id=64001
for user in opensmtpd opensmtpq mailkeeper; do
  echo "$user:x:$id:$id::/var/lib/$user:/bin/sh" >>"$2/passwd"
  echo "$user:x:$id:" >>"$2/group"
  id=$((id + 1))
done
mount --bind "$2/passwd" /etc/passwd
mount --bind "$2/group" /etc/group
for folder in /run /var/lib /var/spool /usr/libexec; do
  mount -t tmpfs -o mode=755 none $folder
done
mkdir -p /var/lib/opensmtpd/empty /usr/libexec/opensmtpd /var/lib/mailkeeper/mail
mkdir -m 711 /var/spool/smtpd
mount --bind "$1/usr/libexec/opensmtpd" /usr/libexec/opensmtpd
mount --bind "$2/mail" /var/lib/mailkeeper/mail
chown -R mailkeeper /var/lib/mailkeeper
LD_LIBRARY_PATH=$(echo "$1"/usr/lib/*-linux-gnu)
export LD_LIBRARY_PATH
exec "$1/usr/sbin/smtpd" -d -f "$2/smtpd.conf"
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


def wait_for(condition, seconds=30):
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            return False
        time.sleep(0.05)
    return True


class OpenSmtpdTest(RoadTest):
    def start_opensmtpd(self):
        """Returns the port and the folder of the mails."""
        own = self.top / "opensmtpd"
        mail = own / "mail"
        mail.mkdir(parents=True)
        with socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            port = free.getsockname()[1]
        (own / "smtpd.conf").write_text(CONFIGURATION.format(port=port))
        log = open(own / "log", "wb")
        self.addCleanup(log.close)
        server = subprocess.Popen([*NAMESPACE, "sh", "-euc", START, "sh", UNPACKED, own],
                                  stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        self.addCleanup(server.wait)
        self.addCleanup(server.terminate)  # its processes end with it

        def answers():
            with socket.socket() as client:
                return server.poll() is not None or client.connect_ex(("127.0.0.1", port)) == 0
        self.assertTrue(wait_for(answers) and server.poll() is None, (own / "log").read_text())
        return port, mail

    def test_mail_is_taken_and_kept_as_it_is(self):
        reason = missing()
        if reason:
            self.skipTest(reason)
        port, folder = self.start_opensmtpd()
        body = ("Tür geöffnet\r\n.dot\r\n..\r\n" + "y" * 900 + "\r\n" +
                ("YmFzZTY0YmFz" * 6 + "NjQg" + "\n") * 5000 +  # lines end in LF, as in attachments
                "\n\r\nend\r\n")
        self.configure([port], [profile(subject="Tür", body=body, to=["a@example.com"],
                                        bcc=["b@example.com"])])
        timeline = self.run_host(("event", event_document()))
        self.assertEqual(timeline.statuses(), [(1, DELIVERED)], timeline.log())

        self.assertTrue(wait_for(lambda: len(list(folder.glob("*.eml"))) == 2))
        recipients = set()
        for path in folder.glob("*.eml"):
            # The server adds its own lines to the header and stores lines as the system has them.
            header, _, content = path.read_bytes().partition(b"\n\n")
            lines = header.split(b"\n")
            recipients.update(line for line in lines if line.startswith(b"Delivered-To:"))
            for ours in (b"From: nvr@example.com", b"To: a@example.com", "Subject: Tür".encode()):
                self.assertEqual(lines.count(ours), 1, header)
            self.assertEqual(content, body.replace("\r\n", "\n").encode())
        self.assertEqual(recipients, {b"Delivered-To: a@example.com",
                                      b"Delivered-To: b@example.com"})


if __name__ == "__main__":
    road.main()
