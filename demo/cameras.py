"""The demo's cameras: what they are called, and the videos that stand in for them."""
import dataclasses
import pathlib
import subprocess

SECONDS = 20


@dataclasses.dataclass(frozen=True)
class Camera:
    name: str        # as in system.xml
    stream: str      # as the host command takes it
    codec: str       # as the host command names it
    width: int
    height: int
    rate: int        # pictures a second
    key_every: int   # pictures
    hue: int         # degrees, so that the clips can be told apart
    encoder: tuple
    container: str

    def video(self, folder):
        return pathlib.Path(folder) / f"{self.name}-{self.codec}.{self.container}"


# Parameter sets, several slices and no picture that refers to a later one, as cameras send them.
H264 = ("libx264", "-preset", "veryfast", "-bf", "0", "-x264-params", "slices=3")

CAMERAS = (
    Camera("Gate", "66049", "h264", 640, 360, 25, 25, 0, H264, "mp4"),
    Camera("Yard", "66305", "mpeg4", 480, 360, 15, 12, 120, ("mpeg4", "-q:v", "6"), "mp4"),
    Camera("Door", "66561", "h264", 640, 360, 25, 50, 240, H264, "mp4"),
    Camera("Door", "66561/1", "jpeg", 320, 180, 5, 1, 240, ("mjpeg", "-q:v", "4"), "mkv"),
)


def make_videos(folder):
    """Pictures with a running clock, so that no two are alike."""
    runs = []
    for camera in CAMERAS:
        size = f"{camera.width}x{camera.height}"
        picture = f"testsrc2=size={size}:rate={camera.rate}:duration={SECONDS},hue=h={camera.hue}"
        pixels = "yuvj420p" if camera.codec == "jpeg" else "yuv420p"
        runs.append(subprocess.Popen(
            ["ffmpeg", "-nostdin", "-v", "error", "-f", "lavfi", "-i", picture,
             "-pix_fmt", pixels, "-g", str(camera.key_every), "-c:v", *camera.encoder,
             camera.video(folder)]))
    if any([run.wait() for run in runs]):
        raise SystemExit("ffmpeg could not make the demo's videos")


def host_options(folder):
    """For each camera, what the host command is told to feed."""
    return [f"{camera.stream} {camera.codec} {camera.video(folder)}" for camera in CAMERAS]
