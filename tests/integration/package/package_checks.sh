#!/usr/bin/env bash
# The Debian package that `./dev package` builds, checked with the ecosystem's own tools.
#   package_checks.sh build SOURCE_DIR DEB_DIR   build it (./dev package) and unpack it into
#                                                DEB_DIR/root for the other checks
#   package_checks.sh CHECK DEB_DIR              one check: lintian, desktop-entry, appstream,
#                                                apt-simulate, purge, uninstall
set -euo pipefail

say() { printf 'package_checks: %s\n' "$*" >&2; }

check="$1"
shift

the_deb() {
  local debs=("$1"/sayvo_*.deb)
  [ ${#debs[@]} -eq 1 ] && [ -f "${debs[0]}" ] || { say "expected one sayvo_*.deb in $1"; exit 1; }
  printf '%s\n' "${debs[0]}"
}

case "$check" in
  build)
    source_dir="$1" dir="$2"
    SAYVO_PACKAGE_BUILD_DIR="$dir" "$source_dir/dev" package
    deb=$(the_deb "$dir")
    rm -rf "$dir/root"
    mkdir -p "$dir/root"
    dpkg-deb -x "$deb" "$dir/root"
    dpkg-deb --info "$deb"
    dpkg-deb --contents "$deb"
    ;;
  lintian)
    # Errors and warnings fail; the ones that do not apply to this package are overridden,
    # each with its reason, in packaging/linux/debian/lintian-overrides (shown here as O:).
    lintian --fail-on error,warning --display-info --show-overrides "$(the_deb "$1")"
    ;;
  desktop-entry)
    desktop-file-validate "$1"/root/usr/share/applications/*.desktop
    ;;
  appstream)
    appstreamcli validate --no-net "$1"/root/usr/share/metainfo/*.metainfo.xml
    # The installed tree as a whole: the metainfo, the desktop entry it launches and the icon.
    appstreamcli validate-tree --no-net "$1/root"
    ;;
  apt-simulate)
    # Every dependency resolves on this machine (the run-time packages are in
    # tools/debian-packages.txt, so a machine ./dev prepared has them).
    apt-get install --simulate --no-install-recommends "$(realpath "$(the_deb "$1")")"
    ;;
  purge)
    # Installed into a private dpkg database and root, then purged: dpkg knows every file the
    # package put there, so nothing is left. The package has no maintainer scripts that could
    # create files dpkg does not know.
    deb=$(the_deb "$1")
    scripts=$(dpkg-deb --ctrl-tarfile "$deb" | tar -t | grep -v -E '^\./(control|md5sums)?$' || true)
    [ -z "$scripts" ] || { say "unexpected control files: $scripts"; exit 1; }
    work=$(mktemp -d)
    trap 'rm -rf "$work"' EXIT
    mkdir -p "$work/admin/updates" "$work/admin/info" "$work/root"
    touch "$work/admin/status" "$work/admin/available"
    dpkg=(dpkg --admindir="$work/admin" --instdir="$work/root" --force-depends
      --force-not-root --force-script-chrootless --log=/dev/null)
    "${dpkg[@]}" --install "$deb"
    installed=$(find "$work/root" -type f | wc -l)
    [ "$installed" -gt 0 ] || { say "nothing was installed"; exit 1; }
    "${dpkg[@]}" --purge sayvo
    left=$(find "$work/root" -mindepth 1 -not -type d)
    [ -z "$left" ] || { say "left behind after purge: $left"; exit 1; }
    folders=$(find "$work/root" -mindepth 1 -type d)
    [ -z "$folders" ] || { say "folders left behind after purge: $folders"; exit 1; }
    say "installed $installed files, purge left nothing"
    ;;
  uninstall)
    # Sayvo's own uninstall, run from the package's payload: the user's runtime goes, the
    # program a package installed stays for the package manager. The package database is a
    # private one (DPKG_ADMINDIR) that lists a copy of the program as the package's.
    payload="$1/root/usr/lib/sayvo/engine-payload"
    work=$(mktemp -d)
    trap 'rm -rf "$work"' EXIT
    program="$work/usr/bin/sayvo"
    mkdir -p "$work/usr/bin" "$work/admin/info" "$work/admin/updates" "$work/home"
    cp "$1/root/usr/bin/sayvo" "$program"
    touch "$work/admin/available"
    printf '%s\n' 'Package: sayvo' 'Status: install ok installed' 'Priority: optional' \
      'Section: utils' 'Maintainer: Sayvo maintainers <maintainers@sayvoapp.com>' \
      'Architecture: amd64' 'Version: 0.1.0' 'Description: push-to-talk dictation' '' \
      >"$work/admin/status"
    printf '%s\n' "$program" >"$work/admin/info/sayvo.list"
    export HOME="$work/home" XDG_CONFIG_HOME="$work/home/.config" DPKG_ADMINDIR="$work/admin"
    runtime="$HOME/.local/share/SayvoApp/runtime"
    bash "$payload/scripts/bootstrap_runtime.sh" --payload "$payload" --install-root "$runtime" \
      --version 0.1.0 >"$work/bootstrap.log" || { cat "$work/bootstrap.log"; exit 1; }
    [ "$(dpkg-query --search "$program" | cut -d: -f1)" = sayvo ] \
      || { say "the private package database does not list $program"; exit 1; }
    bash "$payload/scripts/uninstall.sh" --yes --install-root "$runtime" --app "$program" \
      | tee "$work/uninstall.log"
    [ -e "$program" ] || { say "the packaged program was removed"; exit 1; }
    [ ! -e "$runtime" ] || { say "the runtime was left behind"; exit 1; }
    grep -q "kept application: $program belongs to the package sayvo" "$work/uninstall.log" \
      || { say "the uninstall did not say what it kept"; exit 1; }
    ;;
  *)
    say "unknown check $check"
    exit 2
    ;;
esac
