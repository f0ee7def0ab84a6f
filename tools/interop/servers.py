"""Sends the plug-in's mails to real mail servers and compares what arrives with what was composed.

For each server, way of connecting and layout, prints what became of each kind of message, and then
what readers and spam filters say. Each server is the distribution's, in an overlay of its own.
"""
import email
import email.header
import email.policy
import mailbox
import pathlib
import re
import shutil
import socket
import subprocess
import time

import host_run
from overlay import INSIDE, Overlay

DOMAIN = "mail.example.com"
READER = "reader@" + DOMAIN
LOGIN = ("nvr", "secret")
PLAIN, START_TLS, TLS = "plain", "STARTTLS", "TLS+login"
MODES = {PLAIN: 0, START_TLS: 2, TLS: 1}
STANDARD = ('<Delivery Standard="1" VerifyCertificates="1" CertificateFile="{certificate}" '
            'HelloName="nvr.example.com"/>')
LAYOUTS = {"default": "", "standard": STANDARD}

GATE, YARD = 66049, 66305
DOTS = "Between the dots.\r\n.\r\n..\r\n.leading\r\n"
MESSAGES = [  # subject, body, cameras
    ("plain text", "Video Motion at Gate.\r\n", []),
    ("non-ASCII Tür", "Tür geöffnet – Büro Süd.\r\n", []),
    ("long lines", "Look. " * 1000 + "\r\n", []),
    ("dots", DOTS, []),
    ("one movie", "Video Motion at Gate.\r\n", [GATE]),
    ("several movies", "Video Motion.\r\n", [GATE, YARD]),
]


class Server:
    """A mail server on loopback that keeps what it takes for READER.

    setup runs once inside, and may end by printing the version; command runs the server in the
    foreground. Both may name {plain} and {tls}, its ports, {domain}, and {dir}, which has cert.pem
    and key.pem and the mail."""

    def __init__(self, name, packages, modes, setup, command, box="home/Maildir",
                 tells_version=False):
        self.name, self.packages, self.modes = name, packages, modes
        self.setup, self.command, self.box = setup, command, box
        self.tells_version = tells_version

    def prepare(self, work, shared, ports):
        self.ports = ports
        values = dict(plain=ports[PLAIN], tls=ports[TLS], dir=INSIDE, domain=DOMAIN)
        self.view = Overlay(work / re.sub(r"\W+", "-", self.name), shared)
        versions = self.view.install(*self.packages)
        told = self.view.shell(fill(USERS + self.setup, values)).stdout.split()
        self.version = told[-1] if self.tells_version else versions[self.packages[0]]
        self.words = ["sh", "-euc", fill(self.command, values)]

    def __enter__(self):
        self.process = self.view.start(*self.words, log=self.view.folder / "log")
        for mode in self.modes:
            wait_for_port(self.ports[PLAIN if mode != TLS else TLS], self.process)
        return self

    def __exit__(self, *_):
        self.view.stop(self.process)

    def clear(self):
        box = self.view.shared / self.box
        if box.is_dir():
            for path in box.glob("new/*"):
                path.unlink()
        elif box.exists():
            box.write_bytes(b"")

    def arrived(self):
        box = self.view.shared / self.box
        if box.is_file():
            return [message.as_bytes() for message in mailbox.mbox(box, create=False)]
        return [path.read_bytes() for path in box.glob("new/*")]


# The reader's home lies in the shared folder.
USERS = """
rm -rf {dir}/home {dir}/mail
mkdir -m 1777 {dir}/mail
userdel reader 2>/dev/null || true
useradd -m -d {dir}/home reader
chmod 755 {dir}/home
"""


def fill(script, values):
    for name, value in values.items():
        script = script.replace("{" + name + "}", str(value))
    return script


POSTFIX_SETUP = """
postconf -e 'myhostname={domain}' 'mydestination={domain}' 'inet_interfaces=127.0.0.1' \\
  'inet_protocols=ipv4' 'home_mailbox=Maildir/' 'message_size_limit=100000000' 'mailbox_size_limit=0' \\
  'smtpd_tls_cert_file={dir}/cert.pem' 'smtpd_tls_key_file={dir}/key.pem' \\
  'smtpd_tls_security_level=may' 'smtpd_sasl_auth_enable=yes' 'maillog_file=/var/log/postfix.log' \\
  'alias_maps=' 'smtputf8_enable=no' OPTIONS
postconf -M 'smtp/inet=smtp inet n - n - - smtpd' && postconf -MX smtp/inet
postconf -M '{plain}/inet={plain} inet n - n - - smtpd'
postconf -M '{tls}/inet={tls} inet n - n - - smtpd -o smtpd_tls_wrappermode=yes'
mkdir -p /etc/postfix/sasl
printf 'pwcheck_method: auxprop\\nauxprop_plugin: sasldb\\nmech_list: PLAIN LOGIN\\n' >/etc/postfix/sasl/smtpd.conf
echo secret | saslpasswd2 -p -c -u {domain} nvr
chmod 644 /etc/sasldb2
"""


def postfix(variant, options):
    return Server(f"Postfix{variant}", ["postfix", "libsasl2-modules", "sasl2-bin"], list(MODES),
                  POSTFIX_SETUP.replace("OPTIONS", options), "exec postfix start-fg")


SERVERS = [
    Server("aiosmtpd", ["python3-aiosmtpd"], [PLAIN], "",
           "exec /usr/bin/python3 -m aiosmtpd -n -s 100000000 -l 127.0.0.1:{plain} "
           "-c aiosmtpd.handlers.Mailbox {dir}/home/Maildir"),
    # Debian 12's build fails in each TLS handshake ("EVP lib"), whatever the client.
    Server("OpenSMTPD", ["opensmtpd"], [PLAIN], r"""
cat >/etc/smtpd.conf <<EOF
listen on 127.0.0.1 port {plain} hostname {domain}
action "keep" maildir
match from any for domain "{domain}" action "keep"
EOF
""", "exec smtpd -d"),
    postfix("", ""),
    postfix(" (normalize)", "'smtpd_forbid_bare_newline=normalize' "
            "'smtpd_forbid_bare_newline_exclusions='"),
    postfix(" (reject)", "'smtpd_forbid_bare_newline=reject' "
            "'smtpd_forbid_bare_newline_exclusions='"),
    postfix(" (FQDN in EHLO)", "'smtpd_helo_required=yes' "
            "'smtpd_helo_restrictions=reject_non_fqdn_helo_hostname'"),
    Server("Exim", ["exim4-daemon-light"], list(MODES), r"""
cat >/etc/exim4/update-exim4.conf.conf <<EOF
dc_eximconfig_configtype='internet'
dc_other_hostnames='{domain}'
dc_local_interfaces='127.0.0.1'
dc_localdelivery='maildir_home'
dc_use_split_config='true'
EOF
cat >/etc/exim4/conf.d/main/000_local <<EOF
MAIN_TLS_ENABLE = yes
MAIN_TLS_CERTIFICATE = {dir}/cert.pem
MAIN_TLS_PRIVATEKEY = /etc/exim4/key.pem
daemon_smtp_ports = {plain} : {tls}
tls_on_connect_ports = {tls}
EOF
cat >/etc/exim4/conf.d/auth/99_local <<'EOF'
plain_server:
  driver = plaintext
  public_name = PLAIN
  server_condition = "${if and{{eq{$auth2}{nvr}}{eq{$auth3}{secret}}}}"
  server_set_id = $auth2
  server_prompts = :
EOF
install -o Debian-exim -m 400 {dir}/key.pem /etc/exim4/key.pem
update-exim4.conf
""", "mkdir -p /run/exim4; chown Debian-exim /run/exim4; exec exim4 -bdf -q1m"),
    Server("sendmail", ["sendmail-bin", "sendmail"], [PLAIN], r"""
echo {domain} >/etc/mail/local-host-names
echo "127.0.0.1 {domain} $(hostname).example.com $(hostname)" >/etc/hosts
grep -q accept_unresolvable /etc/mail/sendmail.mc ||
  sed -i "/^MAILER_DEFINITIONS/i FEATURE(\`accept_unresolvable_domains')dnl" /etc/mail/sendmail.mc
yes '' | sendmailconfig >/dev/null 2>&1 || true
""", "mount --bind {dir}/mail /var/mail; mkdir -p /run/sendmail/mta; "
     "exec sendmail-mta -bD -q1m -ODaemonPortOptions=Name=MTA,Port={plain},Addr=127.0.0.1",
     "mail/reader"),
    Server("smtp-server (npm)", ["nodejs"], list(MODES), r"""
mkdir -p /opt/smtp && cd /opt/smtp
[ -d node_modules/smtp-server ] || npm install --silent smtp-server >/dev/null
cat >server.js <<'EOF'
const { SMTPServer } = require('smtp-server');
const fs = require('fs');
let count = 0;
const options = secure => ({
  secure, key: fs.readFileSync('{dir}/key.pem'), cert: fs.readFileSync('{dir}/cert.pem'), authOptional: true,
  onAuth: (auth, session, done) => auth.username === 'nvr' && auth.password === 'secret'
    ? done(null, { user: 'nvr' }) : done(new Error('Invalid username or password')),
  onData: (stream, session, done) => {
    const name = '{dir}/home/Maildir/new/' + ++count;
    stream.pipe(fs.createWriteStream(name)); stream.on('end', () => done(null));
  } });
fs.mkdirSync('{dir}/home/Maildir/new', { recursive: true });
for (const [secure, port] of [[false, {plain}], [true, {tls}]])
  new SMTPServer(options(secure)).on('error', () => {}).listen(port, '127.0.0.1');
EOF
node -p 'require("smtp-server/package.json").version'
""", "cd /opt/smtp; exec node server.js", tells_version=True),
]


def wait_for_port(port, process):
    end = time.monotonic() + 30
    while True:
        with socket.socket() as client:
            if client.connect_ex(("127.0.0.1", port)) == 0:
                return
        if process.poll() is not None or time.monotonic() > end:
            raise RuntimeError("the server does not listen")
        time.sleep(0.1)


def free_ports():
    with socket.socket() as one, socket.socket() as other:
        for it in (one, other):
            it.bind(("127.0.0.1", 0))
        return {PLAIN: one.getsockname()[1], START_TLS: one.getsockname()[1],
                TLS: other.getsockname()[1]}


def make_certificate(folder):
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec",
                    "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-days", "30",
                    "-subj", "/CN=localhost", "-addext", "subjectAltName=DNS:localhost",
                    "-keyout", folder / "key.pem", "-out", folder / "cert.pem"],
                   check=True, capture_output=True)


def subject_of(message):
    """Encoded words or, as the default layout has it, bare UTF-8."""
    field = re.search(rb"(?im)^Subject: *(.*(?:\r?\n[ \t].*)*)", message)
    text = re.sub(r"\r?\n(?=[ \t])", "", field[1].decode("utf-8", "replace")).strip() if field else ""
    return str(email.header.make_header(email.header.decode_header(text))) if "=?" in text else text


def contents(message):
    """Of each part: its type, its name and what it decodes to; texts with the system's line ends."""
    for part in email.message_from_bytes(message, policy=email.policy.default).walk():
        if not part.is_multipart():
            content = part.get_payload(decode=True) or b""
            if part.get_content_maintype() == "text":
                content = content.replace(b"\r\n", b"\n").rstrip(b"\n")
            yield part.get_content_type(), part.get_filename(), content


def difference(composed, arrived):
    """How it arrived: byte for byte but for line ends and what the server adds in front, or decoding
    into the same, or not."""
    ours, theirs = (it.replace(b"\r\n", b"\n").partition(b"\n\n") for it in (composed, arrived))
    missing = [line for line in ours[0].split(b"\n") if line not in theirs[0].split(b"\n")]
    if not missing and ours[2].rstrip(b"\n") == theirs[2].rstrip(b"\n"):
        return "whole"
    if subject_of(composed) == subject_of(arrived) and \
            list(contents(composed)) == list(contents(arrived)):
        return "whole, recoded by the server"
    return "changed"


def verdicts(kept, server):
    """What became of each message: how it arrived, or what curl said."""
    arrived, said = {}, {}
    for message in server.arrived():
        arrived.setdefault(subject_of(message), []).append(message)
    for path in sorted(kept.glob("*.status")):
        composed = path.with_suffix(".eml").read_bytes()
        subject = subject_of(composed)
        status = path.read_text().strip()
        if status != "0":
            words = path.with_suffix(".errors").read_text(errors="replace").split("\n")
            reason = next((it for it in words if it.startswith("curl:")), f"curl: ({status})")
            said.setdefault(subject, "refused, " + reason)
        elif not arrived.get(subject):
            said[subject] = "accepted, did not arrive"
        else:
            said[subject] = difference(composed, arrived[subject][0])
    return said


def run_cell(options, server, mode, delivery):
    login = f'<Authentication username="{LOGIN[0]}" password="{LOGIN[1]}"/>' if mode == TLS else ""
    smtp = (f'<smtp description="{server.name}" address="localhost" port="{server.ports[mode]}" '
            f'UseSSL="{MODES[mode]}">{login}</smtp>')
    profiles = [host_run.profile(number, subject, body, cameras, READER)
                for number, (subject, body, cameras) in enumerate(MESSAGES, 1)]
    steps = [f"camera {GATE} h264 {options.video}", f"camera {YARD} mpeg4 {options.video}", "wait 5"]
    steps += [("event", host_run.event_document(number, cameras or [GATE], int(time.time()) + 4))
              for number, (_, _, cameras) in enumerate(MESSAGES, 1)] + ["wait idle"]
    server.clear()
    _, kept = host_run.run(options.command, options.work / "host",
                           host_run.notify_document(smtp, profiles, delivery), steps)
    delivered = sum(it.read_text() == "0\n" for it in kept.glob("*.status"))
    end = time.monotonic() + 20
    while len(server.arrived()) < delivered and time.monotonic() < end:
        time.sleep(0.5)
    return verdicts(kept, server), kept


def matrix(options):
    rows = []
    certificate = options.shared / "cert.pem"
    for server in SERVERS:
        if options.only and options.only not in server.name:
            continue
        try:
            server.prepare(options.work, options.shared, free_ports())
        except RuntimeError as error:
            print(f"{server.name}: cannot be installed: {error}", flush=True)
            continue
        with server:
            for mode in server.modes:
                for layout, delivery in LAYOUTS.items():
                    said, kept = run_cell(options, server, mode,
                                          delivery.format(certificate=certificate))
                    row = [f"{server.name} {server.version}", mode, layout]
                    row += [said.get(subject, "not sent") for subject, _, _ in MESSAGES]
                    rows.append(row)
                    print(" | ".join(row), flush=True)
                    samples = options.work / "samples" / layout
                    shutil.rmtree(samples, ignore_errors=True)
                    shutil.copytree(kept, samples)
    return rows


def table(head, rows):
    print("| " + " | ".join(head) + " |\n|" + "---|" * len(head))
    for row in rows:
        print("| " + " | ".join(str(it).replace("|", "\\|") for it in row) + " |")


def samples_of(options, layout):
    """A composed message of each kind, by subject."""
    paths = (options.work / "samples" / layout).glob("*.eml")
    return {subject_of(path.read_bytes()): path for path in paths}


# As a server tells the filter who has sent the message; the name is not looked up.
CLIENT = ["--ip", "192.0.2.1", "--hostname", "nvr.example.com", "--helo", "nvr.example.com",
          "--from", "nvr@example.com", "--rcpt", READER]


def filter_scores(options):
    """Scores without network, of each message of both layouts."""
    view = Overlay(options.work / "filters", options.shared)
    versions = view.install("spamassassin", "rspamd", "mpack")
    rows = []
    view.shell("printf 'use_dcc 0\\n' >/etc/spamassassin/local.cf; "
               "printf 'dns { nameserver = [\"127.0.0.1:9\"]; timeout = 0.1s; retransmits = 0; }\\n'"
               " >/etc/rspamd/override.d/options.inc; printf 'enabled = false;\n' | tee /etc/rspamd/override.d/rbl.conf >/etc/rspamd/override.d/hfilter.conf")
    daemon = view.start("sh", "-c", "mkdir -p /run/rspamd; chown _rspamd /run/rspamd; "
                        "exec rspamd -f -u _rspamd -g _rspamd", log=view.folder / "log")
    try:
        wait_for_port(11334, daemon)
        for layout in LAYOUTS:
            for subject, path in sorted(samples_of(options, layout).items()):
                shown = options.shared / "message.eml"
                shutil.copy(path, shown)
                with open(shown, "rb") as message:
                    assassin = view.run("spamassassin", "-L", "-t", stdin=message,
                                        check=False).stdout
                score = re.search(r"score=(-?[0-9.]+)", assassin)
                rules = re.search(r"tests=([A-Z0-9_,\s]+)", assassin)
                answer = view.run("rspamc", "-h", "127.0.0.1:11334", *CLIENT,
                                  f"{INSIDE}/message.eml", check=False).stdout
                other = re.search(r"Score: (-?[0-9.]+)", answer)
                rows.append([layout, subject, score[1] if score else "?",
                             re.sub(r"\s", "", rules[1])[:90] if rules else "",
                             other[1] if other else "?"])
                print(" | ".join(rows[-1]), flush=True)
    finally:
        view.stop(daemon)
    head = ["layout", "message", f"SpamAssassin {versions['spamassassin']}", "its rules",
            f"rspamd {versions['rspamd']}"]
    return head, rows


def reader_rows(options):
    """What readers make of text and file names."""
    view = Overlay(options.work / "filters", options.shared)
    rows = []
    for layout in LAYOUTS:
        for subject, path in sorted(samples_of(options, layout).items()):
            parsed = email.message_from_bytes(path.read_bytes(), policy=email.policy.default)
            body = parsed.get_body(("plain",)) or parsed
            shown = body.get_content().strip()[:24].replace("\n", " ")
            names = [it.get_filename() or "?" for it in parsed.iter_attachments()]
            shutil.copy(path, options.shared / "message.eml")
            unpacked = view.shell("cd /tmp; rm -rf unpack; mkdir unpack; cd unpack; "
                                  f"munpack -q {INSIDE}/message.eml; ls", check=False).stdout.split("\n")
            files = [it for it in unpacked if it.endswith((".mov", ".jpg")) and "(" not in it]
            rows.append([layout, subject, shown, ", ".join(names), ", ".join(files)])
    return ["layout", "message", "text in Python", "names in Python", "names in munpack"], rows


def main():
    options = host_run.read_options(__doc__, only="servers whose name has this in it")
    make_certificate(options.shared)
    options.video = options.work / "video.mp4"
    subprocess.run(["ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i",
                    "testsrc2=size=320x240:rate=10:duration=120", "-g", "10", "-c:v", "libx264",
                    "-pix_fmt", "yuv420p", "-bf", "0", options.video], check=True)
    rows = matrix(options)
    table(["server", "connection", "layout"] + [it[0] for it in MESSAGES], rows)
    table(*reader_rows(options))
    table(*filter_scores(options))


if __name__ == "__main__":
    main()
