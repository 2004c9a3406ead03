# Shared by the scripts: install what is missing, configure and build.
# Sourced, not run.

qaaisp_root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# Installs Debian packages that are not yet installed.
ensure_packages() {
  local missing=()
  for p in "$@"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
  done
  if [ ${#missing[@]} -gt 0 ]; then
    echo "installing: ${missing[*]}"
    local sudo=""
    [ "$(id -u)" = 0 ] || sudo="sudo"
    $sudo apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
  fi
}

base_packages=(g++ cmake ninja-build pkg-config libgtest-dev libgmock-dev libbenchmark-dev
               libpugixml-dev libcurl4-openssl-dev libcli11-dev nlohmann-json3-dev)
