#!/usr/bin/env bash
# Installs the Debian packages the build needs, only those that are missing.
set -euo pipefail
# clang and its runtimes build the fuzzers (libFuzzer, sanitizers); valgrind checks the examples;
# libpcap reads and writes captures, tcpdump checks their classification, scapy makes the example;
# scdoc makes the manual page; dpkg-dev and file let CPack make Debian packages, man-db reads them.
packages=(cmake ninja-build g++ make pkg-config libgtest-dev libgmock-dev libbenchmark-dev
          nlohmann-json3-dev libcli11-dev python3-jsonschema clang libclang-rt-14-dev valgrind
          libpcap-dev tcpdump python3-scapy scdoc dpkg-dev file man-db)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  SUDO=""
  [ "$(id -u)" -eq 0 ] || SUDO="sudo"
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${missing[@]}"
fi
