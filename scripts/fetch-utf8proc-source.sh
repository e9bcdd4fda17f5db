#!/usr/bin/env bash
# Fetches Debian's utf8proc source package into $1 for the Windows build, through a private apt
# configuration under the build tree; the machine's own apt sources are left untouched.
set -euo pipefail
dest="$1"
[ -f "$dest/utf8proc.c" ] && exit 0

work="$(dirname "$dest")/apt-private"
mkdir -p "$work/lists/partial" "$work/archives/partial" "$work/download"
codename=$(. /etc/os-release && echo "${VERSION_CODENAME:-bookworm}")
cat > "$work/sources.list" <<LIST
deb-src [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] http://deb.debian.org/debian $codename main
LIST
opts=(-o "Dir::Etc::SourceList=$work/sources.list" -o "Dir::Etc::SourceParts=-"
      -o "Dir::State::Lists=$work/lists" -o "Dir::Cache::Archives=$work/archives"
      -o "Dir::Cache::pkgcache=" -o "Dir::Cache::srcpkgcache=" -o "APT::Sandbox::User=root")
apt-get "${opts[@]}" update
(cd "$work/download" && apt-get "${opts[@]}" source utf8proc)
src=$(find "$work/download" -maxdepth 1 -mindepth 1 -type d -name 'utf8proc-*' | head -n 1)
[ -n "$src" ] || { echo "utf8proc source package was not unpacked" >&2; exit 1; }
rm -rf "$dest"
mv "$src" "$dest"
