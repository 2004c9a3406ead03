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

# run_fuzz_targets BUILD SECONDS [FILTER]: runs every fuzz target built in
# BUILD/fuzz for SECONDS over its seeds. QAAISP_FUZZ_JOBS targets run at once
# (1 by default); QAAISP_FUZZ_SEED fixes libFuzzer's seed so that a short run
# is repeatable. Each target's output goes to BUILD/<target>.log; a failure
# prints the log's tail. Returns non-zero if any target failed.
run_fuzz_targets() {
  local build=$1 seconds=$2 filter=${3:-} jobs=${QAAISP_FUZZ_JOBS:-1}
  local -a names=()
  local target name
  for target in "$build"/fuzz/*_fuzz; do
    name=$(basename "$target")
    [[ -z "$filter" || "$name" == *"$filter"* ]] && names+=("$name")
  done
  fuzz_one() {  # runs one target and prints its summary in one piece
    local name=$1 seeds=$qaaisp_root/fuzz/corpus/${1%_fuzz} work=$build/corpus/$1
    local log=$build/$name.log
    mkdir -p "$work"
    local args=(-max_total_time="$seconds" -print_final_stats=1 -timeout=25 -rss_limit_mb=2048
                -artifact_prefix="$build/artifacts-$name-")
    [ -n "${QAAISP_FUZZ_SEED:-}" ] && args+=(-seed="$QAAISP_FUZZ_SEED")
    args+=("$work")
    [ -d "$seeds" ] && args+=("$seeds")
    local out rc=0
    "$build/fuzz/$name" "${args[@]}" >"$log" 2>&1 || rc=$?
    if [ "$rc" = 0 ]; then
      out="== $name for ${seconds}s: ok"
    else
      out="== $name for ${seconds}s: FAILED (see $log)"$'\n'"$(tail -40 "$log")"
    fi
    out+=$'\n'"$(grep -E 'stat::number_of_executed_units|stat::peak_rss_mb' "$log" || true)"
    echo "$out"
    return "$rc"
  }
  local status=0 running=0
  for name in "${names[@]}"; do
    fuzz_one "$name" &
    running=$((running + 1))
    if [ "$running" -ge "$jobs" ]; then
      wait -n || status=1
      running=$((running - 1))
    fi
  done
  while [ "$running" -gt 0 ]; do
    wait -n || status=1
    running=$((running - 1))
  done
  return $status
}
