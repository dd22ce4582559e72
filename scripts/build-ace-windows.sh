#!/usr/bin/env bash
# Builds the core ACE library as a static archive for x86_64-w64-mingw32
# (posix thread model) so the Windows lane can link against the same ACE
# release that the native lane gets from libace-dev.
#
# The source comes from Debian's own "ace" source package (apt-get source),
# fetched through a private apt state whose deb-src entries are derived from
# this machine's configured apt sources at run time. The machine's own apt
# configuration and lists are never touched.
#
# Result: ${QIMMISC_CACHE:-$HOME/.cache/qimmisc}/ace-mingw64-<version>/
#           include/ace/...   headers, inline and template sources, config.h
#           lib/libACE.a
#           .stamp            written last; its presence means "done"
# The prefix path is printed as the last line of stdout (pass it to CMake as
# -DACE_ROOT=...). With --print-prefix only the path is printed, nothing is
# built.
#
# Env overrides:
#   QIMMISC_CACHE     cache root (default $HOME/.cache/qimmisc)
#   ACE_DEB_VERSION   Debian source version to build (default: the installed
#                     libace-dev version, else apt's candidate for it)
#   ACE_BUILD_JOBS    parallel make jobs (default 2)
#   KEEP_ACE_BUILD=1  keep the scratch build tree for inspection
set -euo pipefail

# Bump when the build recipe changes so existing caches get rebuilt.
readonly RECIPE_REV=2
readonly TRIPLET=x86_64-w64-mingw32
readonly CXX_WIN="${TRIPLET}-g++-posix"
readonly CC_WIN="${TRIPLET}-gcc-posix"

log() { printf '[build-ace-windows] %s\n' "$*" >&2; }
die() { printf '[build-ace-windows] ERROR: %s\n' "$*" >&2; exit 1; }

print_only=0
for arg in "$@"; do
    case "$arg" in
        --print-prefix) print_only=1 ;;
        -h|--help) sed -n '2,24p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
        *) die "unknown argument: $arg (try --help)" ;;
    esac
done

cache_root="${QIMMISC_CACHE:-${HOME:?HOME is not set}/.cache/qimmisc}"
jobs="${ACE_BUILD_JOBS:-2}"

# --- which ACE -------------------------------------------------------------
# Track the native lane: whatever libace-dev is installed (or would be) is the
# version both lanes must agree on.
ace_version="${ACE_DEB_VERSION:-}"
if [[ -z "$ace_version" ]]; then
    ace_version="$(dpkg-query -W -f='${Version}' libace-dev 2>/dev/null || true)"
fi
if [[ -z "$ace_version" ]]; then
    ace_version="$(apt-cache policy libace-dev 2>/dev/null | awk '/Candidate:/ {print $2}')"
    [[ "$ace_version" == "(none)" ]] && ace_version=""
fi
[[ -n "$ace_version" ]] || die "cannot tell which ACE version to build: libace-dev is neither installed nor known to apt (install libace-dev or set ACE_DEB_VERSION)"

prefix="${cache_root}/ace-mingw64-${ace_version}"
stamp="${prefix}/.stamp"

if [[ $print_only -eq 1 ]]; then
    printf '%s\n' "$prefix"
    exit 0
fi

is_current() { [[ -f "$stamp" ]] && grep -qx "recipe=${RECIPE_REV}" "$stamp"; }

if is_current; then
    log "up to date: $prefix"
    printf '%s\n' "$prefix"
    exit 0
fi

# Parallel callers (two build trees configuring at once) wait for one build
# instead of racing on the same prefix.
mkdir -p "$cache_root"
exec 9>"${prefix}.lock"
if ! flock -n 9; then
    log "another build of this ACE is running; waiting for it"
    flock 9
fi
if is_current; then
    log "up to date: $prefix"
    printf '%s\n' "$prefix"
    exit 0
fi

# --- tools -----------------------------------------------------------------
need_pkgs=()
command -v "$CXX_WIN" >/dev/null || need_pkgs+=(g++-mingw-w64-x86-64-posix)
command -v dpkg-source >/dev/null || need_pkgs+=(dpkg-dev)
command -v perl >/dev/null || need_pkgs+=(perl)
command -v make >/dev/null || need_pkgs+=(make)
command -v xz >/dev/null || need_pkgs+=(xz-utils)
if [[ ${#need_pkgs[@]} -gt 0 ]]; then
    [[ $(id -u) -eq 0 ]] || die "missing tools; install as root: apt-get install ${need_pkgs[*]}"
    log "installing: ${need_pkgs[*]}"
    export DEBIAN_FRONTEND=noninteractive
    if ! apt-get install -y --no-install-recommends "${need_pkgs[@]}" >&2; then
        apt-get update >&2
        apt-get install -y --no-install-recommends "${need_pkgs[@]}" >&2 \
            || die "apt-get install ${need_pkgs[*]} failed"
    fi
fi

work="$(mktemp -d "${cache_root}/.ace-build.XXXXXX")"
staging=""
cleanup() {
    [[ -n "$staging" && -d "$staging" ]] && rm -rf "$staging"
    if [[ "${KEEP_ACE_BUILD:-0}" == 1 ]]; then
        log "scratch tree kept: $work"
    else
        rm -rf "$work"
    fi
}
trap cleanup EXIT

# --- private apt state with deb-src entries ---------------------------------
apt_root="$work/apt"
mkdir -p "$apt_root/sources.list.d" "$apt_root/lists/partial" \
         "$apt_root/cache/archives/partial"

# One-line format: "deb [opts] uri suite comps" -> "deb-src ...".
to_src_oneline() {
    awk '/^[[:space:]]*deb[[:space:]]/ { sub(/deb/, "deb-src"); print }' "$1"
}
# deb822 format: any Types line that lists "deb" becomes "Types: deb-src".
to_src_deb822() {
    awk '
        /^Types:/ {
            n = split(substr($0, 7), t, /[[:space:]]+/); hasdeb = 0
            for (i = 1; i <= n; i++) if (t[i] == "deb") hasdeb = 1
            if (hasdeb) print "Types: deb-src"; else print
            next
        }
        { print }' "$1"
}

: > "$apt_root/sources.list"
if [[ -f /etc/apt/sources.list ]]; then
    to_src_oneline /etc/apt/sources.list >> "$apt_root/sources.list"
fi
shopt -s nullglob
for f in /etc/apt/sources.list.d/*.list; do
    to_src_oneline "$f" > "$apt_root/sources.list.d/$(basename "$f")"
done
for f in /etc/apt/sources.list.d/*.sources; do
    to_src_deb822 "$f" > "$apt_root/sources.list.d/$(basename "$f")"
done
shopt -u nullglob
if ! grep -qs -E '^[[:space:]]*deb-src|^Types: deb-src' \
        "$apt_root/sources.list" "$apt_root"/sources.list.d/*; then
    die "no 'deb' entries found in /etc/apt/sources.list or /etc/apt/sources.list.d/ to derive deb-src entries from"
fi

apt_opts=(
    -o "Dir::Etc::SourceList=$apt_root/sources.list"
    -o "Dir::Etc::SourceParts=$apt_root/sources.list.d"
    -o "Dir::State::Lists=$apt_root/lists"
    -o "Dir::Cache=$apt_root/cache"
    -o "Dir::Cache::pkgcache="
    -o "Dir::Cache::srcpkgcache="
    -o "APT::Sandbox::User=root"
)

log "ACE ${ace_version}: updating private source index"
# Third-party repositories often publish no sources; a partial failure is
# tolerated here and reported precisely by 'apt-get source' below if the
# package really cannot be found.
if ! apt-get "${apt_opts[@]}" -q update >"$work/apt-update.log" 2>&1; then
    log "warning: apt-get update reported errors (see below); continuing"
    grep -E '^(E|W):' "$work/apt-update.log" >&2 || true
fi

log "fetching source package ace=${ace_version}"
src_dir="$work/src"
mkdir -p "$src_dir"
if ! (cd "$src_dir" && apt-get "${apt_opts[@]}" -q source "ace=${ace_version}") \
        >"$work/apt-source.log" 2>&1; then
    cat "$work/apt-source.log" >&2
    die "apt-get source ace=${ace_version} failed (is that version still served by the configured archives?)"
fi
ACE_ROOT="$(find "$src_dir" -mindepth 1 -maxdepth 1 -type d -name 'ace-*' | head -n1)"
[[ -n "$ACE_ROOT" && -f "$ACE_ROOT/ace/ace.mpc" ]] || die "unexpected source layout under $src_dir"
export ACE_ROOT
export MPC_ROOT="$ACE_ROOT/MPC"
upstream_version="$(awk '/define ACE_VERSION / {gsub(/"/, "", $3); print $3}' "$ACE_ROOT/ace/Version.h")"
log "unpacked ACE ${upstream_version} in $ACE_ROOT"

# --- configure ---------------------------------------------------------------
# config.h is what every consumer sees, so everything the archive was built
# with and that changes the ABI/behaviour of the headers goes in here rather
# than only onto the library's own command line.
cat > "$ACE_ROOT/ace/config.h" <<'EOF'
#ifndef ACE_CONFIG_H_INCLUDED
#define ACE_CONFIG_H_INCLUDED
/* Static mingw-w64 build of the core ACE library. */
#ifndef ACE_AS_STATIC_LIBS
#  define ACE_AS_STATIC_LIBS 1
#endif
/* The application owns main(); ACE must not rename it to ace_main_i. */
#ifndef ACE_DOESNT_DEFINE_MAIN
#  define ACE_DOESNT_DEFINE_MAIN 1
#endif
/* Same networking feature set as the Debian build used on Linux. */
#ifndef ACE_HAS_IPV6
#  define ACE_HAS_IPV6 1
#endif
#ifndef ACE_USES_IPV4_IPV6_MIGRATION
#  define ACE_USES_IPV4_IPV6_MIGRATION 1
#endif
/* The archive carries no out-of-line copies of ACE's inline functions, so
   every consumer has to inline them as well (Windows configs don't default
   to this). */
#ifndef __ACE_INLINE__
#  define __ACE_INLINE__
#endif
#include "ace/config-win32.h"
/* Win32 ACE normally builds its Object_Manager on main()'s stack, which only
   happens when ACE rewrites main(). Since we keep our own main(), use the
   static Object_Manager as on Linux: ACE then initialises itself (including
   WSAStartup) when the module holding it loads, with no ACE::init() call. */
#undef ACE_HAS_NONSTATIC_OBJECT_MANAGER
#endif /* ACE_CONFIG_H_INCLUDED */
EOF

cat > "$ACE_ROOT/include/makeinclude/platform_macros.GNU" <<EOF
CROSS_COMPILE = ${TRIPLET}-
static_libs_only = 1
shared_libs =
debug = 0
optimize = 1
inline = 1
include \$(ACE_ROOT)/include/makeinclude/platform_mingw32.GNU
# Pin the posix thread model: the project's code uses std::thread and friends.
CC  = ${CC_WIN}
CXX = ${CXX_WIN}
DLD = \$(CXX)
LD  = \$(CXX)
EOF

cat > "$ACE_ROOT/bin/MakeProjectCreator/config/default.features" <<'EOF'
ssl = 0
qos = 0
EOF

cat > "$ACE_ROOT/QIM-ACE-only.mwc" <<'EOF'
workspace {
  ace/ace.mpc
}
EOF

log "generating GNU makefiles with MPC (gnuace)"
(cd "$ACE_ROOT" && perl bin/mwc.pl -type gnuace -noreldefs QIM-ACE-only.mwc) \
    >"$work/mpc.log" 2>&1 || { cat "$work/mpc.log" >&2; die "MPC failed"; }
[[ -f "$ACE_ROOT/ace/GNUmakefile.ACE" ]] || { cat "$work/mpc.log" >&2; die "MPC did not produce ace/GNUmakefile.ACE"; }

# --- build -------------------------------------------------------------------
log "building libACE.a with ${CXX_WIN} (make -j${jobs}); log: build.log"
start=$(date +%s)
if ! make -C "$ACE_ROOT/ace" -f GNUmakefile.ACE -j"$jobs" \
        >"$work/build.log" 2>&1; then
    tail -n 60 "$work/build.log" >&2
    die "ACE build failed (KEEP_ACE_BUILD=1 keeps $work for inspection)"
fi
log "build took $(( $(date +%s) - start ))s"
lib="$(find "$ACE_ROOT/lib" "$ACE_ROOT/ace" -maxdepth 1 -name libACE.a 2>/dev/null | head -n1)"
[[ -n "$lib" ]] || die "build finished but libACE.a was not produced"

# --- install -----------------------------------------------------------------
# Install into a sibling directory and rename at the end, so a half-written
# prefix is never mistaken for a finished one.
staging="${prefix}.tmp.$$"
rm -rf "$staging"
mkdir -p "$staging/include" "$staging/lib"
# Headers, inline files and template sources (g++ needs the .cpp files of
# templates at the point of instantiation); skip build artefacts.
(cd "$ACE_ROOT" && find ace \( -name '*.h' -o -name '*.inl' -o -name '*.cpp' -o -name '*.ipp' \) \
        -not -path '*/.obj/*' -not -path '*/.shobj/*' -print0 \
    | xargs -0 cp --parents -t "$staging/include")
cp "$lib" "$staging/lib/libACE.a"
cp "$ACE_ROOT/ace/config.h" "$staging/include/ace/config.h"
cp "$ACE_ROOT/include/makeinclude/platform_macros.GNU" "$staging/platform_macros.GNU"
{
    echo "recipe=${RECIPE_REV}"
    echo "debian_version=${ace_version}"
    echo "ace_version=${upstream_version}"
    echo "compiler=$("$CXX_WIN" --version | head -n1)"
    echo "built=$(date -u +%Y-%m-%dT%H:%M:%SZ)"
} > "$staging/.stamp.tmp"
mv "$staging/.stamp.tmp" "$staging/.stamp"
rm -rf "$prefix"
mv "$staging" "$prefix"

log "installed ACE ${upstream_version} (mingw64, static) into $prefix"
printf '%s\n' "$prefix"
