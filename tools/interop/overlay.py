"""A throw-away view of this machine, in which programs of the distribution are installed and run.

An overlay over the system's root takes all that is written, so that the machine stays as it was and
mail servers that exclude each other can all be had. It needs root.
"""
import os
import pathlib
import signal
import subprocess

# In the namespace: $1 the view's folder, $2 the folder that both sides share; the rest is run.
ENTER = r"""
mount -t overlay none -o "lowerdir=/,upperdir=$1/upper,workdir=$1/work" "$1/root"
for folder in dev sys; do mount --rbind /$folder "$1/root/$folder"; done
mount -t proc none "$1/root/proc"
mount -t tmpfs -o mode=755 none "$1/root/run"
mkdir -p "$1/root/run/lock" "$1/root/srv/interop"
mount --bind "$2" "$1/root/srv/interop"
root=$1/root
shift 2
exec chroot "$root" "$@"
"""
QUIET = "#!/bin/sh\nexit 101\n"  # packages start no services
INSIDE = "/srv/interop"


class Overlay:
    """shared: a folder that both sides read and write; INSIDE is its name inside."""

    def __init__(self, folder, shared):
        self.folder, self.shared = pathlib.Path(folder), pathlib.Path(shared)
        for name in ("upper", "work", "root"):
            (self.folder / name).mkdir(parents=True, exist_ok=True)
        policy = self.folder / "upper/usr/sbin/policy-rc.d"
        if not policy.exists():
            policy.parent.mkdir(parents=True)
            policy.write_text(QUIET)
            policy.chmod(0o755)

    def _command(self, words):
        return ["unshare", "--mount", "--pid", "--fork", "--kill-child", "sh", "-euc", ENTER, "sh",
                str(self.folder), str(self.shared), *map(str, words)]

    def run(self, *words, check=True, **options):
        options = {"capture_output": True, "text": True, "errors": "replace", **options}
        done = subprocess.run(self._command(words), check=False, **options)
        if check and done.returncode:
            raise RuntimeError(f"{words}: exit status {done.returncode}\n{done.stdout}{done.stderr}")
        return done

    def shell(self, script, **options):
        return self.run("sh", "-euc", script, **options)

    def install(self, *packages):
        """Installs packages that are missing; their versions."""
        query = ["dpkg-query", "-W", "-f", "${Status} ${Package} ${Version}\\n", *packages]

        def versions():
            lines = self.run(*query, check=False).stdout.splitlines()
            return {line.split()[3]: line.split()[4] for line in lines
                    if line.startswith("install ok installed")}
        if len(versions()) < len(packages):
            self.shell("export DEBIAN_FRONTEND=noninteractive; apt-get -qq update; "
                       "apt-get -qq install -y --no-install-recommends " + " ".join(packages))
        return versions()

    def start(self, *words, log):
        """Runs a program until stop() is called with what this returns."""
        with open(log, "ab") as file:
            return subprocess.Popen(self._command(words), stdin=subprocess.DEVNULL, stdout=file,
                                    stderr=file, start_new_session=True)

    @staticmethod
    def stop(process):
        os.killpg(process.pid, signal.SIGKILL)  # --kill-child ends all that runs inside
        process.wait()
