# SPDX-License-Identifier: MIT
"""The sound that bench/processes lets every program record, in a session such as
scripts/private-session gives: a microphone, the Pulse server, and a screen for who needs one."""

import json
import os
import pathlib
import subprocess
import time

SOURCE = "bench-microphone"
CHANNELS = 2
LIMIT_S = 30


def wait_until(what, condition):
    """Asks every 10 ms, for LIMIT_S at most, and gives what the condition answered."""
    deadline = time.monotonic() + LIMIT_S
    while not (answer := condition()):
        if time.monotonic() > deadline:
            raise RuntimeError(f"waited in vain for {what}")
        time.sleep(0.01)
    return answer


def output_of(*command, **options):
    return subprocess.run(command, check=True, text=True, stdout=subprocess.PIPE, **options).stdout


def links_out():
    """How many links lead out of the microphone."""
    return subprocess.run(["pw-link", "-l", SOURCE], text=True,
                          stdout=subprocess.PIPE).stdout.count("|->")


class SoundSession:
    """Makes it all on entry and ends its processes on exit; the microphone ends with the session.
    Changes this process's environment for those that it starts (PULSE_SERVER, DISPLAY)."""

    def __init__(self, folder):
        self._folder = folder
        self._children = []

    def __enter__(self):
        try:
            self._make_source()
            self._start_pulse()
            self._start_screen()
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        for child in self._children:
            child.kill()
            child.wait()

    def _start(self, *command, **options):
        self._children.append(subprocess.Popen(
            command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, **options))

    def _make_source(self):
        """A stereo microphone that plays noise of changing loudness."""
        output_of("pw-cli", "create-node", "adapter", f"""{{
            factory.name = support.null-audio-sink
            node.name = {SOURCE}
            media.class = Audio/Source/Virtual
            audio.position = [ FL FR ]
            object.linger = true }}""")
        sound = self._folder / "sound.wav"
        # The same on both sides: record-audio's MP3 holds one channel twice, so that all encode
        # alike.
        output_of("sox", "-n", "-r", "48000", "-b", "16", sound, "synth", "1200", "pinknoise",
                  "tremolo", "3", "80", "vol", "0.5", "remix", "1", "1")
        self._start("pw-cat", "--playback", "--target", "0", "-P", "{ node.name = bench-player }",
                    sound)
        for channel in ("FL", "FR"):
            wait_until("the sound", lambda: subprocess.run(
                ["pw-link", f"bench-player:output_{channel}", f"{SOURCE}:input_{channel}"],
                stderr=subprocess.DEVNULL).returncode == 0)
        wait_until("the default source", self._is_default_source)

    @staticmethod
    def _is_default_source():
        # Said again and again, as the session manager may just be coming up.
        subprocess.run(["pw-metadata", "0", "default.configured.audio.source",
                        json.dumps({"name": SOURCE}), "Spa:String:JSON"],
                       stdout=subprocess.DEVNULL)
        return SOURCE in output_of("pw-metadata", "0", "default.audio.source")

    def _start_pulse(self):
        self._start("pipewire-pulse")
        socket = pathlib.Path(os.environ["XDG_RUNTIME_DIR"]) / "pulse/native"
        wait_until("pipewire-pulse", socket.exists)
        os.environ["PULSE_SERVER"] = f"unix:{socket}"

    def _start_screen(self):
        reader, writer = os.pipe()
        self._start("Xvfb", "-displayfd", str(writer), "-nolisten", "tcp", "-noreset",
                    "-screen", "0", "1024x768x24", pass_fds=[writer])
        os.close(writer)
        with os.fdopen(reader) as display:
            number = display.readline().strip()
        if not number:
            raise RuntimeError("Xvfb did not start")
        os.environ["DISPLAY"] = f":{number}"
