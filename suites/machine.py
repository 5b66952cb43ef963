"""Prepares this computer to build for another machine and to run its programs in an emulator.

Debian's cross compilers build, qemu-user runs the programs. All files are in build/machines/NAME.
script/package runs this with the name of a machine. It makes the wheel, and the environment `clean`
with nothing installed.
"""

import argparse
import os
import shutil
import subprocess
import sys
from pathlib import Path

from suite import ROOT, run, say
from wheel import build_wheel

DEBIAN_NAMES = {"aarch64": "arm64", "s390x": "s390x"}
# Python, its headers and all libraries that it needs.
PACKAGES = ("python3", "libpython3-dev", "libstdc++6")
# Apt uses the archives of this computer, but neither reads nor changes what is installed here: its
# files are in the folder {apt}, and for it no package is installed.
APT_SETTINGS = (
    "APT::Architecture={architecture}",
    "APT::Architectures={architecture}",
    "APT::Install-Recommends=false",
    "APT::Sandbox::User=",
    "Acquire::Languages=none",
    "Dir::State={apt}",
    "Dir::State::status={apt}/status",
    "Dir::Cache={apt}",
)


def find_emulator(name):
    return shutil.which(f"qemu-{name}") or shutil.which(f"qemu-{name}-static")


def missing_tools(name):
    """The Debian packages of the cross compiler and of the emulator, if these are missing."""
    compiler = [] if shutil.which(f"{name}-linux-gnu-g++") else [f"g++-{name}-linux-gnu"]
    return compiler if find_emulator(name) else [*compiler, "qemu-user"]


def install_on_this_computer(packages):
    install = 'source script/common.sh && install_packages --no-install-recommends "$@"'
    if subprocess.call(["bash", "-c", install, "install", *packages], cwd=ROOT):
        sys.exit(1)


class Machine:
    """The tools, the folders and the Debian packages of one machine, made when they are missing."""

    def __init__(self, name):
        self.name = name
        self.folder = ROOT / "build/machines" / name
        self.root = self.folder / "root"  # unpacked Debian packages of the machine

    def prepare(self):
        self.folder.mkdir(parents=True, exist_ok=True)
        missing = missing_tools(self.name)
        if missing:
            install_on_this_computer(missing)
        self.make_once("root", " ".join(PACKAGES), self.make_root)

    def make_once(self, name, inputs, make):
        """Calls make(), unless the folder `name` is there and was made from the same inputs."""
        record = self.folder / f"{name}.made"
        is_there = (self.folder / name).exists() and record.exists()
        if not is_there or record.read_text() != inputs:
            say(f"making {self.folder / name}")
            make()
            record.write_text(inputs)

    def download_packages(self):
        """Returns the files of the packages and of those that they need."""
        apt = self.folder / "apt"
        shutil.rmtree(apt, ignore_errors=True)
        apt.mkdir()
        (apt / "status").touch()
        names = {"apt": apt, "architecture": DEBIAN_NAMES[self.name]}
        settings = [f"--option={setting.format(**names)}" for setting in APT_SETTINGS]
        for command in (["update"], ["install", "-y", "--download-only", *PACKAGES]):
            run("apt-get", "-qq", *settings, *command, stdin=subprocess.DEVNULL)
        return sorted(apt.glob("archives/*.deb"))

    def make_root(self):
        """Unpacks the packages, and puts the headers of Python into the folder `include`."""
        include = self.folder / "include"
        shutil.rmtree(self.root, ignore_errors=True)
        shutil.rmtree(include, ignore_errors=True)
        # As on an installed Debian; some packages still have files in /lib.
        for name in ("bin", "sbin", "lib"):
            (self.root / "usr" / name).mkdir(parents=True)
            (self.root / name).symlink_to(f"usr/{name}")
        unpack = 'dpkg-deb --fsys-tarfile "$0" | tar -x --keep-directory-symlink -C "$1"'
        for package in self.download_packages():
            run("bash", "-o", "pipefail", "-c", unpack, package, self.root)
        # Debian's pyconfig.h includes that of the machine from a folder which would also offer the
        # headers of the C library; here it is the machine's own.
        python, headers = self.python_name(), self.root / "usr/include"
        shutil.copytree(headers / python, include, symlinks=True)
        shutil.copy(headers / f"{self.name}-linux-gnu" / python / "pyconfig.h", include)
        # Bytecode is the same for all machines. The emulator would make it slowly. No check,
        # because the standard library has files with intended mistakes.
        compiler = [sys.executable, "-W", "ignore", "-m", "compileall", "-qq"]
        subprocess.run([*compiler, self.root / "usr/lib" / python], check=False)

    def python_name(self):
        """Of the interpreter of the machine, such as python3.11."""
        return os.readlink(self.root / "usr/bin/python3")

    def site_packages(self, environment):
        return self.folder / environment / "lib" / self.python_name() / "site-packages"

    def make_environment(self, name):
        """A fresh virtual environment of the machine. Returns its interpreter.

        That is a script which runs the interpreter in the emulator, so that this also works for
        child processes.
        """
        environment = self.folder / name
        python = environment / "bin/python"
        shutil.rmtree(environment, ignore_errors=True)
        python.parent.mkdir(parents=True)
        self.site_packages(name).mkdir(parents=True)
        home = f"home = {self.root}/usr/bin\ninclude-system-site-packages = false\n"
        (environment / "pyvenv.cfg").write_text(home)
        emulator, program = find_emulator(self.name), self.root / "usr/bin" / self.python_name()
        command = f"exec '{emulator}' -L '{self.root}' -0 \"$0\" '{program}' \"$@\"\n"
        python.write_text(f"#!/bin/sh\n{command}")
        python.chmod(0o755)
        return python

    def make_test_environment(self):
        """Makes the environment with the test tools if they changed. Returns its interpreter."""
        requirements = ROOT / "script/requirements-tests.txt"
        inputs = requirements.read_text() + Path(__file__).read_text()

        def make():
            self.make_environment("environment")
            self.install("environment", "-r", requirements)

        self.make_once("environment", inputs, make)
        return self.folder / "environment/bin/python"

    def install(self, environment, *options):
        """Installs wheels of the machine with the pip of this computer, which is faster."""
        site = self.site_packages(environment)
        run(
            *(sys.executable, "-m", "pip", "install", "-qq", "--target", site),
            *("--only-binary", ":all:", "--platform", f"manylinux_2_17_{self.name}"),
            *("--platform", f"linux_{self.name}"),
            *("--python-version", self.python_name().removeprefix("python"), *options),
            cwd=ROOT,
        )

    def build_wheel(self, native):
        """Builds the wheel, with the tag linux_NAME, and the native tests if asked."""
        multiarch = run("g++", "-print-multiarch", stdout=subprocess.PIPE).stdout.strip()
        definitions = {
            "CMAKE_SYSTEM_NAME": "Linux",
            "CMAKE_SYSTEM_PROCESSOR": self.name,
            "CMAKE_CXX_COMPILER": f"{self.name}-linux-gnu-g++",
            "Python_INCLUDE_DIR": self.folder / "include",
            # Headers only, so those of this computer will do.
            "Boost_DIR": min(Path("/usr/lib", multiarch, "cmake").glob("Boost-*"), default=""),
        }
        # The tag is that of the platform on which Python believes to run.
        settings = {"_PYTHON_HOST_PLATFORM": f"linux-{self.name}"}
        options = {"native": native, "definitions": definitions, "settings": settings}
        return build_wheel(self.folder, self.folder / "build", **options)


if __name__ == "__main__":
    parser = argparse.ArgumentParser(usage="script/package --on MACHINE")
    parser.add_argument("machine", choices=DEBIAN_NAMES)
    machine = Machine(parser.parse_args().machine)
    machine.prepare()
    machine.build_wheel(native=False)
    machine.make_environment("clean")
