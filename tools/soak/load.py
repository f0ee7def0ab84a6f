"""What the soak run does to the plug-in, as a scenario of `notifypi host`: cameras, events of
profiles that are due and not due, changes of the configuration, a mail server that goes away."""
import pathlib
import random
import re
import subprocess
import typing

FIRST_TIME = 1_500_000_000  # of the first event; one a second of it, so that each has its own
ROUND = 150                 # seconds after which outages and changes repeat
FILL = 40                   # seconds until all histories are full, and the host's own store
EVENTS_A_SECOND = 10
CAMERAS = 24
START, END, BOTH = 0, 1, 2


class Profile(typing.NamedTuple):
    attach: int = 0
    clip: int = 0
    throttle: int = 0
    edge: int = BOTH


PROFILES = {1: Profile(), 2: Profile(1, 2, 0, START), 3: Profile(1, 0, 0, START),
            4: Profile(throttle=5), 5: Profile(1, 2, 3, END)}
# The events of a second: profiles, whether the event starts (None: either), and of JPEG cameras.
SLOTS = [([1], None, False), ([4, 5], None, False), ([2], True, False), ([4, 5], None, False),
         ([1], None, False), ([3], True, True), ([2], False, False), ([99], True, False),
         ([4, 5], None, False), ([1], None, False)]
OUTAGES = [(20, 26), (70, 78), (123, 128)]  # within a round
CONFIGURED_UNTIL, CONFIGURED_EVERY, SYSTEM_EVERY = 60, 4, 15
CODECS = {"h264": (5, 10), "mpeg4": (4, 15), "jpeg": (0, 5)}  # standard and frames a second
ENCODERS = {"h264": "libx264 -preset ultrafast -pix_fmt yuv420p -x264-params scenecut=0",
            "mpeg4": "mpeg4 -pix_fmt yuv420p", "jpeg": "mjpeg -q:v 20 -pix_fmt yuvj420p"}


class Camera(typing.NamedTuple):
    number: int
    codec: str

    @property
    def source(self):
        return 0x10000 | self.number << 8 | 1


def cameras(count=CAMERAS, codecs=tuple(CODECS)):
    return [Camera(i + 1, codecs[i % len(codecs)]) for i in range(count)]


def make_film(folder, codec, seconds, rate="600k"):
    """A film as long as the run: cameras do not stop. Made are ten seconds, which repeat."""
    ffmpeg = ["ffmpeg", "-nostdin", "-v", "error", "-y"]
    pace = CODECS[codec][1]
    short, film = folder / f"short-{codec}.mp4", folder / f"{codec}.mp4"
    picture = f"testsrc2=size=320x240:rate={pace}:duration=10,noise=alls=12:allf=t"
    subprocess.run([*ffmpeg, "-f", "lavfi", "-i", picture, "-c:v", *ENCODERS[codec].split(),
                    "-g", str(pace), *(["-b:v", rate] if codec != "jpeg" else []), short],
                   check=True)
    subprocess.run([*ffmpeg, "-stream_loop", "-1", "-i", short, "-t", str(seconds), "-c", "copy",
                    film], check=True)
    return film


def system_document(present):
    def source(camera):
        return f'<Device Number="{camera.number}"><Video><Input Number="1"/></Video></Device>'
    devices = "".join(
        f'<Device Number="{it.number}"><Context Number="0"><Video><Input Number="1"/></Video>'
        f'<Codec><Encoder><Channel ID="{it.source}" Number="1" Width="320" Height="240" '
        f'Standard="{CODECS[it.codec][0]}"/></Encoder></Codec></Context></Device>'
        for it in present)
    events = "".join(f'<Event ID="7" PreAlarm="5"><Devices ID="65536">{source(it)}</Devices>'
                     "<Action><Notify/></Action></Event>" for it in present)
    return (f'<tDVR Delta="0"><Devices ID="65536">{devices}</Devices>'
            f"<Events>{events}</Events></tDVR>")


def configuration(number, port, profiles, settings):
    elements = "".join(
        f'<smtp ID="{key}" description="P{key}" attach="{it.attach}" MaxVideoSeconds="{it.clip}" '
        f'ThrottleSeconds="{it.throttle}" EventEdge="{it.edge}" from="nvr@example.com" '
        f'subject="{key} {{date format=&quot;%Y%m%d%H%M%S&quot;}}"><to>guard@example.com</to>'
        f"<cc>office@example.com</cc><body>{{event type}} at {{source}}, {{event state}}. "
        f"Configuration {number}.</body></smtp>" for key, it in profiles.items())
    return (f'<tDVR Delta="1"><Notify ID="786432" {settings}><Servers><smtp description="Sink" '
            f'address="127.0.0.1" port="{port}" UseSSL="0"/></Servers>'
            f'<Profiles autoincrement="100">{elements}</Profiles></Notify></tDVR>')


def event_document(number, profiles, starts, sources):
    entries = "".join(
        f'<Profile ID="{it}" Alarm="{int(starts)}" Action="7" Time="{FIRST_TIME + number}" '
        'Milliseconds="0">' + "".join(f'<EventSource ID="{source}" Type="2"/>'
                                      for source in sources) + "</Profile>" for it in profiles)
    return f'<tDVR><Notify ID="786432"><Profiles>{entries}</Profiles></Notify></tDVR>'


def mentions(event):
    """What an event document asks for: (profile, time, whether it is known and due, throttle)."""
    entry = r'<Profile ID="(\d+)" Alarm="(\d)" .*? Time="(\d+)"'
    for profile, alarm, time in re.findall(entry, event):
        known = PROFILES.get(int(profile))
        due = known and known.edge in (BOTH, START if alarm == "1" else END)
        yield int(profile), int(time), known, bool(due), known.throttle if known else 0


class Scenario:
    """A scenario file, and beside it the documents that it sends."""

    def __init__(self, folder):
        self.folder = pathlib.Path(folder)
        (self.folder / "documents").mkdir(parents=True)
        self.steps = []

    def send(self, kind, name, text):
        (self.folder / "documents" / name).write_text(text)
        self.steps.append(f"{kind} documents/{name}")

    def begin(self, present, films, update):
        self.send("system", "system.xml", system_document(present))
        self.send("update", "begin.xml", update)
        self.steps += [f"camera {it.source} {it.codec} {films[it.codec]}" for it in present]
        self.steps.append(f"wait {FILL}")

    def write(self):
        path = self.folder / "soak.steps"
        path.write_text("\n".join(self.steps) + "\n")
        return path


def write_load(folder, seconds, port):
    """The long run's scenario; its last update clears the retry queue when all else is done."""
    settings = 'MaxRetrySeconds="50" MaxRetryQueue="40" EmailSizeLimitMB="1"'
    present, any_of = cameras(), random.Random(1)
    films = {codec: make_film(folder, codec, seconds * 1.5 + FILL + 120) for codec in CODECS}
    scenario = Scenario(folder)
    scenario.begin(present, films, configuration(0, port, PROFILES, settings))
    without = [it for it in present if it is not present[2]]
    scenario.send("system", "without.xml", system_document(without))
    scenario.steps.pop()
    for second in range(seconds):
        within = second % ROUND
        for begin, end in OUTAGES:
            if within in (begin, end):
                scenario.steps.append(f"mail-server {'down' if within == begin else 'up'}")
        if within % CONFIGURED_EVERY == 0 and within < CONFIGURED_UNTIL:
            scenario.send("update", f"{second}.xml",
                          configuration(second, port, PROFILES, settings))
        if second % SYSTEM_EVERY == 0:
            name = "without" if second // SYSTEM_EVERY % 2 else "system"
            scenario.steps.append(f"system documents/{name}.xml")
        for slot, (profiles, starts, stills) in enumerate(SLOTS):
            number = second * EVENTS_A_SECOND + slot
            starts = any_of.random() < 0.5 if starts is None else starts
            among = [it.source for it in present if (it.codec == "jpeg") == stills]
            sources = any_of.sample(among, 2 if 5 in profiles else 1)
            scenario.send("event", f"event-{number}.xml",
                          event_document(number, profiles, starts, sources))
            scenario.steps.append(f"wait {1 / EVENTS_A_SECOND}")
    scenario.steps += ["mail-server up", "wait idle"]
    scenario.send("update", "last.xml", configuration(-1, port, PROFILES, settings))
    scenario.steps.append("wait 5")
    return scenario.write()
