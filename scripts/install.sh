# Sourced by the scripts that install what they need. Each step installs only what is missing.

# What the Linux build and its tests need from Debian.
build_packages=(cmake g++ make pkg-config googletest libgtest-dev libgmock-dev libbenchmark-dev libopenh264-dev
  libx11-dev libxext-dev libxdamage-dev libxcomposite-dev libxfixes-dev xvfb x11-utils x11-xserver-utils)

# apt_install PACKAGE...: the Debian packages that are not installed yet.
apt_install() {
  local missing=() package
  for package in "$@"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" || missing+=("$package")
  done
  [ "${#missing[@]}" -gt 0 ] || return 0
  echo "installing ${missing[*]}"
  local sudo_cmd=()
  [ "$(id -u)" -eq 0 ] || sudo_cmd=(sudo)
  # Another apt-get (an unattended upgrade, a second install beside this one) may hold the package
  # lock: apt waits for it instead of failing at once, and says so while it waits.
  local lock_wait=(-o "DPkg::Lock::Timeout=$apt_lock_timeout")
  apt_lock_note
  "${sudo_cmd[@]}" apt-get "${lock_wait[@]}" update -qq
  apt_lock_note
  DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get "${lock_wait[@]}" install -y -qq --no-install-recommends \
    "${missing[@]}"
}

# Seconds apt waits for another apt-get's lock before it gives up, and the lock it waits for.
apt_lock_timeout=${apt_lock_timeout:-600}
apt_lock_file=${apt_lock_file:-/var/lib/dpkg/lock-frontend}

# apt_lock_note: says so when another process holds the package lock, so that a wait isn't taken
# for a hang. apt's own note is silent at -qq. The lock is a POSIX one: /proc/locks lists it by inode.
apt_lock_note() {
  local inode
  inode=$(stat -c %i "$apt_lock_file" 2>/dev/null) || return 0
  if grep -qE ":$inode " /proc/locks 2>/dev/null; then
    echo "waiting up to ${apt_lock_timeout}s for another apt-get to release $apt_lock_file" >&2
  fi
}

# npm_install: the npm dependencies, when absent or when the lock file changed since the last install.
npm_install() {
  if [ ! -f node_modules/.package-lock.json ] || [ package-lock.json -nt node_modules/.package-lock.json ]; then
    npm ci --no-audit --no-fund --loglevel=error
  fi
}
