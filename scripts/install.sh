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
  "${sudo_cmd[@]}" apt-get update -qq
  DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
}

# npm_install: the npm dependencies, when absent or when the lock file changed since the last install.
npm_install() {
  if [ ! -f node_modules/.package-lock.json ] || [ package-lock.json -nt node_modules/.package-lock.json ]; then
    npm ci --no-audit --no-fund --loglevel=error
  fi
}
