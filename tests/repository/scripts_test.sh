#!/usr/bin/env bash
# Tries what the scripts share: scripts_test.sh SOURCE_DIRECTORY TEST
# A test is one of the functions below whose name begins with a capital letter. What the scripts would install is
# installed by stand-ins, the only commands that a test finds besides those that it names.
set -euo pipefail

support=$(realpath "$1")/scripts/support.sh
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
mkdir bin
for command in bash cat env grep id mkdir sed tail tr; do
    # No links: what is written to a link of a stand-in's name would go to the command itself.
    printf '#!%s\nexec "%s" "$@"\n' "$(command -v bash)" "$(command -v "$command")" > "bin/$command"
    chmod +x "bin/$command"
done

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

# standIn NAME [BODY]: a command of this name, which notes how it was called.
standIn() {
    printf '#!/usr/bin/env bash\necho "%s $*" >> "%s/calls"\n%s\n' "$1" "$folder" "${2:-}" > "bin/$1"
    chmod +x "bin/$1"
}

# run COMMANDS: after the script was read; standard output and error stream go to `out`.
run() {
    status=0
    env -i PATH="$folder/bin" ${CXX:+CXX="$CXX"} bash -c "set -euo pipefail; source '$support'; $1" > out 2>&1 || status=$?
}

expectStatus() {
    [ "$status" -eq "$1" ] || fail "exit status $status: $(cat out)"
}

expectOutput() {
    [ "$(cat out)" = "$1" ] || fail "expected '$1', not '$(cat out)'"
}

expectCalls() {
    [ "$(cat calls 2> /dev/null)" = "$1" ] || fail "expected the calls '$1', not '$(cat calls 2> /dev/null)'"
}

StepKeepsWhatSucceedsToItself() {
    run 'step "Doing: this" bash -c "echo noise; echo more >&2"'
    expectStatus 0
    grep -qxE 'Doing: this \.\.\. done, [0-9]+ s' out || fail "printed $(cat out)"
    [ "$(cat build/log/Doing-this.log)" = $'noise\nmore' ] || fail "the log holds $(cat build/log/*)"
}

StepShowsWhatFailsAndEndsTheScript() {
    run 'step "Doing this" bash -c "echo noise; exit 7"; echo later'
    expectStatus 7
    expectOutput "Doing this ... failed with exit status 7:
noise
This was $folder/build/log/Doing-this.log"
}

TestsEndWithTheSummary() {
    standIn nproc 'echo 3'
    standIn ctest 'printf "      Start  1: a\n 1/1 Test  #1: a ...   Passed  0.01 sec\n\n100%% tests passed, 0 tests failed out of 1\n\nTotal\n"'
    run 'run_tests dev -L some'
    expectStatus 0
    expectOutput 'Running the tests of dev
100% tests passed, 0 tests failed out of 1

Total'
    expectCalls 'nproc 
ctest --preset dev --parallel 3 -L some'
}

FailedTestsAreShown() {
    standIn nproc 'echo 3'
    standIn ctest 'printf "      Start  1: a\n 1/2 Test  #1: a ...   Passed  0.01 sec\n 2/2 Test  #2: b ...***Failed  0.01 sec\nwhy\n50%% tests passed\n"; exit 8'
    run 'run_tests dev; echo later'
    expectStatus 8
    expectOutput "Running the tests of dev
 2/2 Test  #2: b ...***Failed  0.01 sec
why
50% tests passed
All output is in $folder/build/log/tests-dev.log"
}

NothingIsInstalledThatIsThere() {
    standIn c++
    standIn apt-get
    run 'require_packages g++=c++ some-dev=/usr/bin/env'
    expectStatus 0
    expectOutput ''
    expectCalls ''
}

MissingPackagesAreInstalled() {
    standIn c++
    standIn id 'echo 0'
    standIn apt-get 'echo noise'
    run 'require_packages one=one two=/no/such/file g++=c++'
    expectStatus 0
    ! grep -q noise out || fail "apt-get is heard"
    expectCalls 'id -u
apt-get update
apt-get install -y --no-install-recommends one two'
}

WithoutSudoTheCommandIsShown() {
    standIn id 'echo 1000'
    standIn apt-get
    run 'require_packages one=one two=two; echo later'
    expectStatus 1
    expectOutput 'Packages are missing, and sudo is not there to install them. As root, run
    apt-get update && apt-get install -y --no-install-recommends one two'
}

RefusedBySudoTheCommandIsShown() {
    standIn id 'echo 1000'
    standIn apt-get
    standIn sudo 'exit 1'
    run 'require_packages one=one'
    expectStatus 1
    expectOutput 'Packages are missing, and sudo is not there to install them. As root, run
    apt-get update && apt-get install -y --no-install-recommends one'
}

SudoInstalls() {
    standIn c++
    standIn id 'echo 1000'
    standIn apt-get
    standIn sudo '[ "$1" = -v ] || "$@"'
    run 'require_packages one=one'
    expectStatus 0
    grep -qx 'apt-get install -y --no-install-recommends one' calls || fail "the calls are $(cat calls)"
}

WithoutDebianThePackagesAreNamed() {
    standIn c++
    run 'require_packages one=one; echo later'
    expectStatus 0
    expectOutput 'Not found here: what Debian has in the packages one. Install it if a step below fails.
later'
}

# CXX=... expectPackage PACKAGE: of the compiler.
expectPackage() {
    run 'compiler_package'
    expectStatus 0
    expectOutput "$1"
}

PackageOfTheCompilerIsThatOfTheOneAskedFor() {
    CXX='' expectPackage g++=c++
    CXX=g++ expectPackage g++=g++
    CXX=g++-12 expectPackage g++-12=g++-12
    CXX=clang++ expectPackage clang=clang++
    CXX=/usr/bin/clang++-14 expectPackage clang-14=/usr/bin/clang++-14
    CXX='clang++ -stdlib=libc++' expectPackage clang=clang++
    CXX='ccache g++' expectPackage ''
    CXX=/opt/cc expectPackage ''
}

MissingCompilerIsNamed() {
    CXX=/opt/cc run 'require_compiler; echo later'
    expectStatus 1
    expectOutput 'The C++ compiler /opt/cc, which the variable CXX asks for, was not found.'
    run 'require_compiler; echo later'
    expectStatus 1
    expectOutput 'The C++ compiler c++ was not found.'
}

PackagesNeedNoCompilerOfThisMachine() {
    standIn i686-linux-gnu-g++
    run 'require_packages g++-i686-linux-gnu=i686-linux-gnu-g++; echo later'
    expectStatus 0
    expectOutput later
    expectCalls ''
}

# expectLevels FLAGS V3 V4: exit status for each level where /proc/cpuinfo has these flags.
expectLevels() {
    standIn grep "echo 'flags : $1'"
    run 'processor_runs v3'
    expectStatus "$2"
    run 'processor_runs v4'
    expectStatus "$3"
}

LevelsOfTheProcessorAreThoseOfAllTheirInstructions() {
    local v3='fpu avx f16c movbe abm fma bmi1 avx2 bmi2'
    expectLevels "$v3" 0 1
    expectLevels "$v3 avx512f avx512dq avx512cd avx512bw avx512vl" 0 0
    expectLevels "$v3 avx512f avx512dq avx512cd avx512bw avx512vlx" 0 1
    expectLevels 'fpu avx f16c movbe abm fma bmi1 bmi2 avx512f avx512dq avx512cd avx512bw avx512vl' 1 1
    standIn grep 'exit 1'
    run 'processor_runs v3'
    expectStatus 1
}

# prepareCross ROW: a folder with the script and a page with this row. The digest that is there already computes the
# hashes expected, stores the text `archive`, and loads nothing else.
prepareCross() {
    mkdir -p docs build/cross/g++/bin
    cp -r "${support%/*}" scripts
    printf '| platform | title |\n|---|---|\n%s\n' "$1" > docs/platforms.md
    for command in cmp cp cut dirname rm; do
        printf '#!%s\nexec "%s" "$@"\n' "$(command -v bash)" "$(command -v "$command")" > "bin/$command"
        chmod +x "bin/$command"
    done
    standIn apt-get
    standIn cmake
    standIn ctest
    standIn g++ 'echo 12.3'
    standIn id 'echo 0'
    standIn ninja
    standIn nproc 'echo 2'
    standIn digest 'case $1 in --store) echo archive > "$2" ;; --load) [[ $(cat "$2") == archive ]] ;; esac'
    cp bin/digest build/cross/g++/bin
}

# cross STATUS OPTION...
cross() {
    status=0
    env -i PATH="$folder/bin" bash scripts/cross.sh "${@:2}" > out 2>&1 || status=$?
    expectStatus "$1"
}

expectRow() {
    [ "$(tail -n +3 docs/platforms.md)" = "$1" ] || fail "expected the row '$1', not $(cat docs/platforms.md out)"
}

RowTellsWhatTestsAndDigestGave() {
    prepareCross '| `g++-O2` | an earlier run | 1 | 7 of 8 | differ | differ | no |'
    standIn ctest 'printf "99%% tests passed, 2 tests failed out of 30\n"; exit 8'
    cross 1 g++-O2
    expectRow '| `g++-O2` | x86-64, g++ -O2 | 12.3 | 28 of 30 | equal | identical | crosswise |'
    grep -q '^cmake .*-DCLASTOOL_LEVEL=-O2 ' calls || fail "the calls are $(cat calls)"
}

RowTellsOfWrongHashesAndArchives() {
    prepareCross '| `g++-O2` | an earlier run | 1 | 7 of 8 | equal | identical | crosswise |'
    standIn digest 'case $1 in
        --store) if [[ -e stored ]]; then echo other; else echo archive; fi > "$2"; echo > stored ;;
        --load) [[ $(cat "$2") == archive ]] ;;
        *) exit 1 ;;
    esac'
    cp bin/digest build/cross/g++/bin
    cross 1 --digest g++-O2
    expectRow '| `g++-O2` | x86-64, g++ -O2 | 12.3 | 7 of 8 | differ | differ | no |'
}

DigestAloneLeavesWhatTheRowSaysOfTheTests() {
    prepareCross '| `g++-O3` | an earlier run | 1 | 7 of 8 | differ | differ | no |'
    cross 0 --digest g++-O3 g++-Os
    expectRow '| `g++-O3` | x86-64, g++ -O3 | 12.3 | 7 of 8 | equal | identical | crosswise |
| `g++-Os` | x86-64, g++ -Os | 12.3 | not run | equal | identical | crosswise |'
    ! grep -q '^ctest' calls || fail "the tests were run"
}

CheckLeavesThePageAsItIs() {
    prepareCross '| `g++-O3` | an earlier run | 1 | 7 of 8 | differ | differ | no |'
    cross 0 --check g++-O3
    expectRow '| `g++-O3` | an earlier run | 1 | 7 of 8 | differ | differ | no |'
    grep -q '^digest tests/digest/expected.txt' calls || fail "the calls are $(cat calls)"
}

LevelThatTheProcessorLacksIsSkippedAndLeavesItsRow() {
    prepareCross '| `g++-v4` | an earlier run |'
    standIn grep 'echo "flags : fpu avx2"'
    cross 0 g++-v4 clang++-v3
    expectOutput 'g++-v4: skipped, since this processor lacks instructions of x86-64-v4
clang++-v3: skipped, since this processor lacks instructions of x86-64-v3'
    expectRow '| `g++-v4` | an earlier run |'
    ! grep -q '^cmake' calls || fail "built all the same"
}

"$2"
