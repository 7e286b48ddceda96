#!/usr/bin/env bash
# Installs, from Debian's packages, whatever the build and the tests need and
# the machine lacks. Safe to run again: it installs nothing that is there.
set -euo pipefail

packages=(
  cmake g++ make pkg-config    # build
  libxml2-utils                # the rehearsal tests validate its JUnit XML (xmllint)
  googletest libgtest-dev libgmock-dev  # tests
  liblmdb-dev                  # runtime store stand-in
  libcli11-dev                 # command-line parsing
  nlohmann-json3-dev           # JSON
  clang libclang-rt-dev        # fuzzing harnesses (libFuzzer)
  groff-base bsdextrautils     # the install test renders the manual pages (nroff, col)
  chromium                     # the rehearsal report's page is loaded headless in a test
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=""
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "setup: need root (or sudo) to install: ${missing[*]}" >&2; exit 1; }
  sudo=sudo
fi
echo "setup: installing ${missing[*]}"
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
