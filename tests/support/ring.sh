# Sourced by the rings, tests/RING/ring [EXPRESSION]. A ring installs what it needs, tests the program of $HWREG_BUILD
# (default: build/), leaves JUnit files in $results and ends with 0 when all is well.
#
# Its second line says what it tests and, behind a semicolon, how long that takes on two cores. A third line `# quick`
# lets scripts/test without words run it, `# quick: EXPRESSION` a part of it.
set -u
top=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd) || exit 1
. "$top/scripts/packages.sh"
HWREG_BUILD=$(realpath -m "${HWREG_BUILD:-$top/build}")
export HWREG_BUILD
results=$HWREG_BUILD/results
mkdir -p "$results"

# build_tree DIR TARGET [CMAKE OPTION...] builds a target, or "all", in DIR; silent unless it fails.
build_tree() {
    local dir=$1 target=$2
    shift 2
    need_commands g++=g++ cmake=cmake make=make && need_packages libgtest-dev && mkdir -p "$dir" || return
    (
        flock 9
        if ! { cmake -S "$top" -B "$dir" -DHWREG_TESTS=ON "$@" &&
            cmake --build "$dir" --target "$target" --parallel 2; } >"$dir/build.log" 2>&1 9>&-; then
            cat "$dir/build.log"
            exit 1
        fi
        ! grep -n 'warning:' "$dir/build.log" || { echo "the build has warnings" && exit 1; }
    ) 9>"$dir/.lock"
}

# need_tree builds the program and what its tests use.
need_tree() {
    build_tree "$HWREG_BUILD" all -DHWREG_STATIC=ON
}

# run_pytest RESULT FOLDER EXPRESSION [OPTION...] runs the tests of a folder of tests/. labgrid's plugin, which pytest
# takes up by itself once a ring has installed it, costs each process half a second.
run_pytest() {
    need_packages python3 python3-pytest python3-pytest-xdist python3-pytest-timeout || return
    /usr/bin/python3 -m pytest -q -p no:cacheprovider -p no:labgrid --timeout=1800 --junitxml="$results/$1.xml" \
        ${3:+-k "$3"} "${@:4}" "$top/tests/$2"
}

# run_both RESULT FOLDER EXPRESSION [OPTION...] runs them twice: with the programs as they are and, in the guests, with
# those that are one file.
run_both() {
    local failed=0
    run_pytest "$@" || failed=1
    HWREG_KIND=static run_pytest "$1-static" "${@:2}" || failed=1
    return $failed
}

# run_unit RESULT FILTER runs the unit tests that a GoogleTest filter chooses.
run_unit() {
    "$HWREG_BUILD/hwreg_unit" --gtest_brief=1 --gtest_output="xml:$results/$1.xml" ${2:+--gtest_filter="$2"}
}
