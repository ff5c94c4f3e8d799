# Read by the steps beside it: goes to the project's directory, installs what is missing, and has what they share.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/../.."
. scripts/setup.sh
install_kinds build check full

jobs=${CTEST_PARALLEL_LEVEL:-$(nproc)}

# suites PRESET ARGS...: builds everything and runs the tests through ctest, which gets the arguments. Ends with a
# line on how many there were.
suites() {
    local preset=$1
    shift
    build "$preset" all
    ctest --test-dir "build/$preset" --output-on-failure --parallel "$jobs" "$@" | tee "build/$preset/tests.log"
    grep -E '^[0-9]+% tests passed' "build/$preset/tests.log"
}
