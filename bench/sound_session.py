# SPDX-License-Identifier: MIT
"""The sound that every program of bench/processes records, in a session such as that of
scripts/private-session: a microphone, the Pulse server, and a screen for programs that need one."""

import json
import os
import pathlib
import subprocess
import time

SOURCE = "bench-microphone"
CHANNELS = 2
LIMIT_S = 30


def wait_until(what, condition):
    """Checks every 10 ms, for at most LIMIT_S, and returns the condition's value."""
    deadline = time.monotonic() + LIMIT_S
    while not (answer := condition()):
        if time.monotonic() > deadline:
            raise RuntimeError(f"gave up waiting for {what}")
        time.sleep(0.01)
    return answer


def output_of(*command, **options):
    return subprocess.run(command, check=True, text=True, stdout=subprocess.PIPE, **options).stdout


def links_out():
    """Returns the number of links from the microphone."""
    return subprocess.run(["pw-link", "-l", SOURCE], text=True,
                          stdout=subprocess.PIPE).stdout.count("|->")


class SoundSession:
    """Sets everything up on entry and ends its processes on exit; the microphone ends with the
    session. Changes this process's environment for its child processes (PULSE_SERVER, DISPLAY)."""

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
        """Creates a stereo microphone that plays noise of changing loudness."""
        output_of("pw-cli", "create-node", "adapter", f"""{{
            factory.name = support.null-audio-sink
            node.name = {SOURCE}
            media.class = Audio/Source/Virtual
            audio.position = [ FL FR ]
            object.linger = true }}""")
        sound = self._folder / "sound.wav"
        # The same on both sides, because record-audio's MP3 has one channel twice: all programs
        # then encode the same.
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
        # Repeated, as the session manager may still be starting.
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
