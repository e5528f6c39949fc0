#!/usr/bin/env bash
# Installs what building and testing need on a fresh Debian machine (as root).
set -euo pipefail
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq cmake g++ clang libclang-rt-14-dev ninja-build python3 libgtest-dev ccache > /dev/null
