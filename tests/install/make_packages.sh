#!/bin/sh
# make_packages.sh SOURCE BUILT OUT: makes the Debian packages of a build in OUT/first, and the same ones with a higher
# version in OUT/second.
set -eu

"$1/packaging/make-packages" -b "$2" "$3/first"

rm -rf "$3/second"
mkdir "$3/second"
cd "$3"/first/vukocrond-*/
sed -i '1s/)/+next)/' debian/changelog
export DEB_RULES_REQUIRES_ROOT=no DPKG_DEB_COMPRESSOR_TYPE=gzip DPKG_DEB_COMPRESSOR_LEVEL=1
dh_gencontrol
dh_md5sums
dh_builddeb --destdir="$3/second"
