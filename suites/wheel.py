"""Builds the wheel. script/wheel has the options."""

import os
import re
import shutil
import subprocess
import sys
import time

from suite import ROOT, say

STEP = re.compile(r" *\[(\d+)/(\d+)\]")  # of ninja
SECONDS_BETWEEN_STEPS = 5  # that are shown


def build_wheel(
    folder=ROOT / "build",
    build=ROOT / "build/release",
    preset="release",
    native=False,
    definitions=None,
    settings=None,
):
    """Builds the wheel, and the native tests as well if asked. Returns the wheel.

    `folder` is for the wheel and the messages, `build` for everything else. `definitions` are
    variables of CMake, `settings` environment variables.
    """
    options = {
        "build-dir": build,
        "cmake.args": f"--preset={preset}",
        "cmake.build-type": "Release" if preset == "release" else "Debug",
    }
    options |= {f"cmake.define.{name}": value for name, value in (definitions or {}).items()}
    if not native:
        options["build.targets"] = "velmarmultidimarrayforpython"
        # Configuring a folder without its native tests would delete those that are built.
        cache = build / "CMakeCache.txt"
        if not (cache.exists() and "VELMAR_NATIVE_TESTS:BOOL=ON" in cache.read_text()):
            options["cmake.define.VELMAR_NATIVE_TESTS"] = "OFF"
    wheels, log = folder / "wheel", folder / "wheel.log"
    shutil.rmtree(wheels, ignore_errors=True)
    folder.mkdir(parents=True, exist_ok=True)
    command = [sys.executable, "-m", "pip", "wheel", ".", "-v", "--no-deps", "--no-build-isolation"]
    command += ["--no-index", f"--wheel-dir={wheels}"]
    command += [f"--config-settings={name}={value}" for name, value in options.items()]
    say(f"building the wheel; all messages are in {log.relative_to(ROOT)}")
    streams = {"stdout": subprocess.PIPE, "stderr": subprocess.STDOUT, "text": True}
    environment = os.environ | (settings or {})
    start = shown = time.monotonic()
    pip = subprocess.Popen(command, cwd=ROOT, env=environment, **streams)
    with log.open("w", buffering=1) as messages:
        for line in pip.stdout:
            messages.write(line)
            now = time.monotonic()
            if now > shown + SECONDS_BETWEEN_STEPS and (step := STEP.match(line)):
                say(f"step {step[1]} of {step[2]}, {now - start:.0f} s")
                shown = now
    if pip.wait():
        sys.exit(f"{log.read_text()}\nthe build failed")
    return next(wheels.glob("*.whl"))


if __name__ == "__main__":
    print(build_wheel(native=sys.argv[1:] == ["--native-tests"]).relative_to(ROOT))
