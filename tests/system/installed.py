"""The build as it is installed, in a folder that machines can show at its prefix."""

import os
import subprocess

from store import BUILD_DIR


def install(stage, prefix):
    """Installs the build for a prefix into a folder. @return the folder whose content is to lie at the prefix."""
    subprocess.run(["cmake", "--install", BUILD_DIR, "--prefix", prefix], check=True, capture_output=True,
                   env={**os.environ, "DESTDIR": stage})
    return stage + prefix


def local_folders(stage):
    """Installs the build for /usr/local. @return what a machine is to be given, as folders, to have it there."""
    tree = install(stage, "/usr/local")
    return {f"/usr/local/{name}": (f"{tree}/{name}", False) for name in ("bin", "sbin", "lib", "share")}


def unit_of(tree):
    """The text of the unit that was installed."""
    for folder, _, names in os.walk(tree):
        if "vukocrond.service" in names:
            with open(os.path.join(folder, "vukocrond.service"), encoding="utf-8") as file:
                return file.read()
    raise AssertionError("no unit is installed")
