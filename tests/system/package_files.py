"""Machines to which the Debian packages can be installed, which another test has made."""

import os

from machine import Machine
from store import BUILD_DIR

PACKAGES = os.path.join(BUILD_DIR, "packages")
FIRST, SECOND = "/made/first", "/made/second"  # the same packages with a lower and a higher version

# Services may be started; all files of a package are installed; nothing waits for a disk, an index of manual pages or a
# network that is not there; and nothing is left of packages that the machine around this one may have.
_PREPARE = """
rm -f /usr/sbin/policy-rc.d /etc/dpkg/dpkg.cfg.d/* /var/lib/man-db/auto-update
echo force-unsafe-io >/etc/dpkg/dpkg.cfg.d/quick
echo 'Acquire::Retries "0";' >/etc/apt/apt.conf.d/quick
dpkg --purge vukocrond libvukocrond-dev libvukocrond0 libvukoplatform0
"""


def machine_for_packages(**how):
    """A machine that sees the packages; prepare() it once it is there."""
    return Machine(folders={"/made": (PACKAGES, False)}, **how)


def prepare(machine):
    machine.run("sh", "-c", _PREPARE)
