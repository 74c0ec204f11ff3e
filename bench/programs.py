# SPDX-License-Identifier: MIT
"""The programs that bench/processes compares, and how to make each record and stop."""

import contextlib
import json
import os
import pathlib
import shutil
import signal
import subprocess
import time

from closed_files import ClosedFiles, written_files
from sound_session import SOURCE, output_of, wait_until

PCM_RATE_HZ = 8000


class Program:
    """A recorder with its own folder `output`, which contains only finished recordings; everything
    that it writes is in `folder`. Files that an interrupted start leaves in `unfinished` must not
    count as recordings of the next one. Ended with SIGINT, as with Ctrl+C, unless there is a `stop`
    command."""

    def __init__(self, folder, name, command, output, environment=None, stop=None,
                 unfinished=None):
        self.name = name
        self._folder = folder
        self.command = [str(part) for part in command]
        self.output = output
        self.environment = {**os.environ, **(environment or {})}
        self._stop = stop
        self._folders = [output] + ([unfinished] if unfinished else [])
        for own in self._folders:
            own.mkdir(parents=True, exist_ok=True)
        self._process = None

    def forget_recordings(self):
        for own in self._folders:
            for file in own.iterdir():
                file.unlink()

    def start(self):
        self.forget_recordings()
        self._process = subprocess.Popen(self.command, env=self.environment,
                                         stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        return self._process.pid

    def stop_ms(self):
        """Ends the recording, then the program. Returns the time from before the command until
        the last descriptor of the file is closed and the file has its name."""
        files = list(written_files(self._process.pid, self._folder))
        if not files:
            raise RuntimeError(f"{self.name} does not write a file")
        closed = ClosedFiles(files)
        begin_s = time.monotonic()
        if self._stop:
            subprocess.run(self._stop, env=self.environment, check=True,
                           stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        else:
            self._process.send_signal(signal.SIGINT)
            wait_until(f"the end of {self.name}", lambda: self._process.poll() is not None)
        wait_until(f"the file of {self.name}", closed.complete_s)
        self.end()
        return (closed.complete_s() - begin_s) * 1e3

    def end(self):
        while self._process and self._process.poll() is None:
            self._process.terminate()
            with contextlib.suppress(subprocess.TimeoutExpired):
                self._process.wait(0.2)

    def recorded_s(self):
        """Returns the duration of the last recording, which must decode without errors."""
        (file,) = self.output.iterdir()
        decoded = subprocess.run(
            ["ffmpeg", "-nostdin", "-v", "error", "-i", file, "-f", "s16le", "-ac", "1",
             "-ar", str(PCM_RATE_HZ), "-"], check=True, stdout=subprocess.PIPE,
            stderr=subprocess.PIPE)
        if decoded.stderr:
            raise RuntimeError(f"{self.name}: {decoded.stderr.decode().strip()}")
        return len(decoded.stdout) / 2 / PCM_RATE_HZ


def record_audio(build, folder, name, sound_format, more_settings=None):
    home = folder / name
    settings = home / "config/com.vantrel.korvel.RecordAudio"
    settings.mkdir(parents=True)
    (settings / "defaults.json").write_text(
        json.dumps({"SoundFormat": sound_format, **(more_settings or {})}))
    locations = home / "config/com.vantrel.korvel"
    locations.mkdir()
    output = home / "recordings"
    (locations / "locations.json").write_text(json.dumps(
        {"a5f597ea-d3f3-4347-bbe6-344e240acc7e": str(output)}))
    program = build / "record-audio"
    unfinished = home / "unfinished"
    return Program(folder, name, [program], output, {
        "XDG_CONFIG_HOME": str(home / "config"), "XDG_STATE_HOME": str(home / "state"),
        "TMPDIR": str(unfinished)}, stop=[program, "--stop"], unfinished=unfinished)


def gnome_sound_recorder(folder):
    name = "gnome-sound-recorder"
    home = folder / name
    output = home / "data/org.gnome.SoundRecorder"
    press = pathlib.Path(__file__).with_name("press-record")
    # Drawn without OpenGL, which this screen only emulates; otherwise with its defaults: FLAC.
    return Program(folder, name, [press, output], output, {
        "XDG_DATA_HOME": str(home / "data"), "XDG_CACHE_HOME": str(home / "cache"),
        "GDK_BACKEND": "x11", "GSK_RENDERER": "cairo", "GSETTINGS_BACKEND": "memory",
        "GTK_A11Y": "none"}, stop=["xdotool", "key", "s"])


def all_groups(build, folder):
    """Returns the programs in groups that record together. A session runs record-audio once."""
    def plain(name, command, extension):
        output = folder / name
        return Program(folder, name, [*command, output / f"recording.{extension}"], output)

    def ffmpeg(name, extension, *encoder):
        return plain(name, ["ffmpeg", "-nostdin", "-y", "-f", "pulse", "-i", SOURCE, *encoder],
                     extension)

    for needed in ("pw-record", "parecord", "arecord", "gnome-sound-recorder", "xdotool"):
        if not shutil.which(needed):
            raise RuntimeError(f"{needed} is not installed; see scripts/packages-bench.txt")
    return [
        [record_audio(build, folder, "record-audio MP3", 1),
         ffmpeg("ffmpeg MP3", "mp3", "-c:a", "libmp3lame", "-b:a", "320k",
                "-compression_level", "2"),
         plain("pw-record", ["pw-record", "--target", SOURCE, "--rate", "48000",
                             "--channels", "2"], "wav")],
        [record_audio(build, folder, "record-audio AAC", 0),
         ffmpeg("ffmpeg AAC", "m4a", "-c:a", "aac", "-b:a", "256k"),
         plain("parecord", ["parecord", f"--device={SOURCE}", "--rate=48000", "--channels=2",
                            "--format=s16le", "--file-format=wav"], "wav")],
        [gnome_sound_recorder(folder),
         plain("arecord", ["arecord", "-q", "-D", "pipewire", "-f", "S16_LE", "-r", "48000",
                           "-c", "2", "-t", "wav"], "wav")]]


def versions():
    """Returns the versions of the Debian packages that take part."""
    packages = ["pipewire", "wireplumber", "ffmpeg", "libavcodec[0-9]*", "libmp3lame0",
                "pulseaudio-utils", "alsa-utils", "pipewire-alsa", "gnome-sound-recorder"]
    lines = output_of("dpkg-query", "-W", "-f", "${db:Status-Status} ${Package} ${Version}\n",
                      *packages).splitlines()
    return {package: version for status, package, version in map(str.split, lines)
            if status == "installed"}
