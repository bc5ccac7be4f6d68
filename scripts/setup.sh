#!/bin/sh
# Installs everything Velum needs to build, test and run, from Debian 12
# packages only. Safe to run again: packages already present are left alone.
set -eu

PACKAGES="
build-essential cmake ninja-build ccache pkg-config git
qt6-base-dev qt6-base-dev-tools qt6-declarative-dev qt6-declarative-dev-tools
qml6-module-qtquick qml6-module-qtquick-controls qml6-module-qtquick-layouts
qml6-module-qtquick-window qml6-module-qtqml-workerscript qml6-module-qtquick-templates
qml6-module-qtquick-dialogs
libqt6svg6 qt6-qpa-plugins libgl-dev libxkbcommon-dev
qcoro-qt6-dev qtkeychain-qt6-dev
libicu-dev libfftw3-dev libsndfile1-dev libssl-dev
googletest libgtest-dev libgmock-dev libbenchmark-dev
ffmpeg libxml2-utils yt-dlp espeak-ng sox
"

missing=""
for p in $PACKAGES; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing="$missing $p"
    fi
done

if [ -n "$missing" ]; then
    if [ "$(id -u)" -ne 0 ]; then
        echo "setup: these packages are missing and installing them needs root:$missing" >&2
        exit 1
    fi
    export DEBIAN_FRONTEND=noninteractive
    apt-get update
    # shellcheck disable=SC2086
    apt-get install -y --no-install-recommends $missing
fi
