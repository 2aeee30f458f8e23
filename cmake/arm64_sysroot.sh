#!/usr/bin/env bash
# Unpacks Debian's arm64 packages and their dependencies into a folder. apt uses separate lists for it. So the packages,
# architectures and lists of the machine do not change, and no privileges are needed.
# usage: arm64_sysroot.sh FOLDER PACKAGE...
set -euo pipefail

sysroot=$1
shift

mkdir -p "$(dirname "$sysroot")"
work=$(mktemp -d "$sysroot.XXXXXX")
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/apt/lists/partial" "$work/apt/archives/partial" "$work/root"
: >"$work/apt/status"
cat >"$work/apt.conf" <<CONFIGURATION
APT::Architecture "arm64";
APT::Architectures { "arm64"; };
APT::Install-Recommends "false";
APT::Sandbox::User "";
Dir::State "$work/apt";
Dir::State::status "$work/apt/status";
Dir::Cache "$work/apt";
CONFIGURATION

export APT_CONFIG=$work/apt.conf
apt-get update -qq
apt-get install -qq -y --download-only "$@" >/dev/null
for package in "$work"/apt/archives/*.deb; do
  dpkg-deb -x "$package" "$work/root"
done

# Records the requested packages, then all packages that were unpacked.
{
  echo "$*"
  cd "$work/apt/archives" && ls -- *.deb
} >"$work/root/packages"
rm -rf "$sysroot"
mv "$work/root" "$sysroot"
