#!/usr/bin/env bash
# Runs the surface inspector as a user does: surface_inspector_test.sh PROGRAM DATA_DIRECTORY TEST
# A test is one of the functions below whose name begins with a capital letter.
set -euo pipefail

program=$(realpath "$1")
data=$(realpath "$2")
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

# expectLine REGEX: standard output has such a line.
expectLine() {
    grep -qxE -- "$1" out || fail "no line '$1' in: $(cat out)"
}

# run ARGUMENT...: the program succeeds and says nothing on the standard error stream.
run() {
    "$program" "$@" > out 2> err || fail "exit status $? of: $*: $(cat err)"
    [ ! -s err ] || fail "standard error stream of: $*: $(cat err)"
}

# refuses MESSAGE ARGUMENT...: exit status 2, that one line on the standard error stream, nothing else written.
refuses() {
    local message=$1 status=0
    shift
    "$program" "$@" > out 2> err || status=$?
    [ "$status" -eq 2 ] || fail "exit status $status of: $*: $(cat err)"
    echo "surface_inspector: $message" > expected
    cmp -s expected err || fail "of: $*: expected '$(cat expected)', not '$(cat err)'"
    [ ! -s out ] || fail "standard output of: $*: $(cat out)"
    [ ! -e surface_inspector.html ] || fail "a report in spite of: $*"
}

# fails MESSAGE ARGUMENT...: exit status 1 and that one line on the standard error stream.
fails() {
    local message=$1 status=0
    shift
    "$program" "$@" > "${output:-out}" 2> err || status=$?
    [ "$status" -eq 1 ] || fail "exit status $status of: $*: $(cat err)"
    echo "surface_inspector: $message" | cmp -s - err || fail "of: $*: '$(cat err)'"
}

# refusesPicture MESSAGE FILE: whether it is to be trained or shown.
refusesPicture() {
    refuses "$2: $1" --train "a=$2" "b=$data/brick.pgm"
    refuses "$2: $1" --mosaic "$2"
}

# accuracyAfter REGEX: the first accuracy below the first line that matches.
accuracyAfter() {
    sed -nE "/^$1/,\$p" out | sed -nE '0,/accuracy/s/^  accuracy ([01]\.[0-9]+) .*/\1/p'
}

# atLeast FLOOR NUMBER
atLeast() {
    awk -v number="${2:-0}" -v floor="$1" 'BEGIN { exit !(number >= floor) }' || fail "'$2' is below $1"
}

# noise BYTES: the same bytes every time, hardly two of them alike.
noise() {
    dd if="$data/grass.pgm" bs=1 skip=20000 count="$1" 2> /dev/null
}

# picture WIDTH HEIGHT: a PGM file of that size.
picture() {
    printf 'P5\n%d %d\n255\n' "$1" "$2"
    noise $(($1 * $2))
}

ShippedPicturesAreDecidedRightly() {
    run
    atLeast 0.98 "$(accuracyAfter 'Bayesian, all measurements jointly')"
    atLeast 0.95 "$(accuracyAfter 'Bayesian, each measurement by itself')"
    atLeast 0.95 "$(accuracyAfter '5 nearest neighbours')"
    expectLine '3 surfaces, 384 tiles of the left halves learned, 384 of the right halves tried'
    expectLine 'Never trained \(coins, .*'
    expectLine 'To take [a-z]+ for [a-z]+ now costs 20 .*'
    expectLine '  changed: [1-9][0-9]* of 384 tiles, [1-9][0-9]* of [0-9]+ windows of the mosaic'
    expectLine '  with the old cost put back, all results are as before'
    expectLine "Stored in surface_inspector.classifier: $(stat -c %s surface_inspector.classifier) bytes"
    expectLine '  the tool loaded from it equals the stored one, 0 of 384 results differ'
    expectLine "  the neighbours' tool from its file equals the stored one"
    expectLine '  as loaded it runs with default parameters \(1 neighbour\): [1-9][0-9]* of 384 results differ'
    expectLine '  after tool.retrain\(\*tool.trainParams\(\)\): 0 differ'
    expectLine '  neighbours: K-nearest neighbor classification does not support invalid measurements'
}

CoveredLensFitsNoSurface() {
    run
    # The nearest surface takes all of the posterior, and one of its limits for six measurements would let it pass; that
    # for the five that are valid does not.
    sed -n '/^A covered lens/,/^  gravel/p' out > lens
    grep -qxE '  brick +1\.000 +1\.000 +0\.000' lens || fail "another decision: $(cat lens)"
    grep -qxE '  fit -[0-9.]+, limit -[0-9.]+: none of these' lens || fail "it fits: $(cat lens)"
    local fit
    fit=$(sed -nE 's/^  fit (-[0-9.]+), .*/\1/p' lens)
    atLeast "$(sed -nE 's/^  limits: brick (-[0-9.]+), .*/\1/p' out)" "$fit"
    grep -q 'none of these</strong>, whatever the scores say.</dd>' surface_inspector.html || fail "the page does not say so"
}

HigherCostMakesMistakesCheaper() {
    run
    local costs
    costs=$(sed -nE 's/^  mistakes at the new cost: ([0-9]+) as decided before, ([0-9]+) now$/\1 \2/p' out)
    read -r before after <<< "$costs"
    [ "$after" -lt "$before" ] || fail "mistakes cost $before before, $after after"
}

PosteriorIsSureOfWhatWasNeverTrainedAndFitIsNot() {
    run
    atLeast 0.95 "$(accuracyAfter 'Bayesian, none of these where the fit is below')"
    local share='[0-9]+\.[0-9]'
    expectLine "  windows inside the parts of the mosaic: 9[5-9]\.[0-9] % right, by posterior alone [67][0-9]\.[0-9] %"
    expectLine "  coins, never trained: posterior above 0.99 on [6-9]$share %, none of these on 9[0-9]\.[0-9] % of its windows"
    expectLine '  limits: brick -[0-9.]+, grass -[0-9.]+, gravel -[0-9.]+'
    expectLine "  brick: posterior above 0.99 on $share %, none of these on [0-9]\.[0-9] % of its windows"
    grep -q 'No tile of coins was learned' surface_inspector.html || fail "the point is not made"
    run --mosaic "$data/brick.pgm" "$data/grass.pgm"
    ! grep -qE 'never trained|No tile of' out surface_inspector.html || fail "something is unknown"
}

TreeBuiltByHandSortsTheTiles() {
    run
    atLeast 0.97 "$(accuracyAfter 'Decision tree built by hand')"
    expectLine '  leaf brick: 128 of brick, 0 of grass, 0 of gravel'
    expectLine '  leaf measure again: 0 of brick, 0 of grass, 0 of gravel'
    expectLine '  on the left halves, which it was made for, it is right for 0\.9[789][0-9]'
    expectLine '  a covered lens: measure again'
    grep -q '<svg class="drawing" role="img" aria-label="The decision tree' surface_inspector.html ||
        fail "the tree is not drawn"
    # Every tile is at one leaf.
    [ "$(sed -nE 's/^  leaf [^:]*: ([0-9]+) of brick, ([0-9]+) of grass, ([0-9]+) of gravel$/\1 \2 \3/p' out |
        awk '{ brick += $1; grass += $2; gravel += $3 } END { print brick, grass, gravel }')" = "128 128 128" ] ||
        fail "the leaves do not hold all tiles"
}

TreeSendsFlatTilesToMeasureAgain() {
    # grass whose last row of tiles begins with a flat one in the left half, with two in the right half
    {
        head -c $((15 + 480 * 512)) "$data/grass.pgm"
        for ((row = 0; row < 32; ++row)); do
            head -c 32 /dev/zero
            noise 224
            head -c 64 /dev/zero
            noise 192
        done
    } > grass.pgm
    run --train "gravel=$data/gravel.pgm" grass=grass.pgm "brick=$data/brick.pgm"
    expectLine '  leaf measure again: 0 of gravel, 2 of grass, 0 of brick'
}

RulesWrittenByHandReproduceMostDecisions() {
    run
    atLeast 0.93 "$(accuracyAfter 'Rule table written by hand')"
    expectLine '  closest call: .* rules score brick 0\.[0-9]+, gravel 0\.[1-9][0-9]*, grass 0\.[1-9][0-9]*'
    expectLine '  the same decision as the trained method on 3[5-8][0-9] of 384 tiles'
    expectLine '  on the left halves, which they were written for, they are right for 0\.9[789][0-9]'
    [ "$(tail -n 3 out | head -n 1)" = '  a covered lens: no rule fits' ] || fail "a rule fits a covered lens"
    [ "$(grep -c 'aria-label="Membership functions of ' surface_inspector.html)" -eq 5 ] || fail "curves are missing"
}

OwnSurfacesAreNotSortedByHand() {
    run --train "brick=$data/brick.pgm" "grass=$data/grass.pgm" "stones=$data/gravel.pgm"
    ! grep -qE 'Decision tree|Rule table' out surface_inspector.html || fail "a tree or rules for other surfaces"
    run --train "brick=$data/brick.pgm" "grass=$data/grass.pgm"
    ! grep -qE 'Decision tree|Rule table' out surface_inspector.html || fail "a tree or rules for other surfaces"
}

ReportIsWholeAndNeedsNothingElse() {
    run --report my.html
    expectLine 'Report with pictures: my.html'
    [ -e my.classifier ] && [ -e my.classifier.neighbours ] || fail "no stored classifier"
    [ "$(tail -n 1 my.html)" = '</html>' ] || fail "the report ends early"
    grep -oE '(src|href)="[^"]{0,40}|url\([^)]{0,40}|@import|<link|<script' my.html > resources
    ! grep -vE '^(src="|url\()data:image/png;base64,' resources || fail "the report needs another file"
    [ "$(grep -c '<img' my.html)" -gt 0 ] || fail "no picture"
    ! grep -E '<img' my.html | grep -vE 'alt="[^"]+"' || fail "a picture without a description"
}

ReportNamesNothingAsMarkup() {
    cp "$data/coins.pgm" '<b>&"x".pgm'
    run --train "<i>=$data/brick.pgm" "b&c=$data/grass.pgm" --mosaic '<b>&"x".pgm'
    ! grep -qE '<(i|b)>' surface_inspector.html || fail "a name is markup"
    grep -q '&lt;b&gt;&amp;&quot;x&quot;' surface_inspector.html || fail "a name is missing"
}

PlainAndDeepPicturesGiveTheSame() {
    run
    grep accuracy out > expected
    # brick as plain text with comments, grass with 16 bits: each grey level 257 times as high
    {
        printf 'P2#plain\n# a comment\n512 # width\n512\n255\n'
        tail -c 262144 "$data/brick.pgm" | od -An -v -tu1
    } > brick.pgm
    {
        printf 'P5\n512\n512 65535\n'
        printf '%b' "$(tail -c 262144 "$data/grass.pgm" | od -An -v -tx1 -w1 | awk '{ printf "\\x%s\\x%s", $1, $1 }')"
    } > grass.pgm
    run --train brick=brick.pgm grass=grass.pgm "gravel=$data/gravel.pgm" \
        --mosaic brick.pgm grass.pgm "$data/gravel.pgm" "$data/coins.pgm"
    grep accuracy out | cmp - expected || fail "another accuracy: $(grep accuracy out)"
}

OwnPicturesOfAnySizeAreTaken() {
    picture 65 32 > small.pgm
    run --train "brick=$data/brick.pgm" small=small.pgm --train "coins=$data/coins.pgm"
    expectLine '3 surfaces, .*'
    run --mosaic small.pgm
    expectLine 'Never trained \(small, .*'
}

FlatTilesAreLeftOutOrRefused() {
    # 128 x 64, the left column of each half's tiles flat
    {
        printf 'P5\n128 64\n255\n'
        for ((row = 0; row < 64; ++row)); do
            for ((half = 0; half < 2; ++half)); do
                head -c 32 /dev/zero
                dd if="$data/grass.pgm" bs=1 skip=$((20000 + row * 32)) count=32 2> /dev/null
            done
        done
    } > part.pgm
    run --train "brick=$data/brick.pgm" part=part.pgm
    expectLine '2 surfaces, 130 tiles of the left halves learned \(2 of one grey level left out\), 132 of .*'
    expectLine '  part +[0-2] +[0-2] +2'
}

HelpIsGiven() {
    run --help
    expectLine 'Usage: surface_inspector .*'
    [ ! -e surface_inspector.html ] || fail "a report was written"
}

FullDiskIsReported() {
    [ -c /dev/full ] || exit 0
    ln -s /dev/full full.html
    fails "full.html: cannot be written: No space left on device" --report full.html
    output=/dev/full fails "the standard output cannot be written"
}

BadArgumentsAreRefused() {
    refuses "unknown argument '--colour' (--help lists all)" --colour
    refuses "unknown argument 'brick.pgm' (--help lists all)" brick.pgm
    refuses "unknown argument '' (--help lists all)" ''
    refuses "--train: a value is missing" --train
    refuses "--train: a value is missing" --train --mosaic "$data/coins.pgm"
    refuses "--mosaic: a value is missing" --mosaic
    refuses "--report: a value is missing" --report
    refuses "--train: 'brick.pgm' is not of the form NAME=FILE" --train brick.pgm
    refuses "--train: '=brick.pgm' is not of the form NAME=FILE" --train =brick.pgm
    refuses "--train: 'brick=' is not of the form NAME=FILE" --train brick=
    refuses "--train: at least two surfaces are needed" --train "a=$data/brick.pgm"
    refuses "--train: two surfaces are named 'a'" --train "a=$data/brick.pgm" "b=$data/grass.pgm" "a=$data/gravel.pgm"
    refuses "--train: at most 7 surfaces are possible" --train {a,b,c,d,e,f,g,h}="$data/brick.pgm"
    refuses "none/r.html: there is no folder 'none'" --report none/r.html
    mkdir here
    refuses "here: is a folder" --report here
}

FilesThatAreNotThereAreRefused() {
    refusesPicture "cannot be opened: No such file or directory" none.pgm
    refuses ": cannot be opened: No such file or directory" --mosaic ''
    mkdir here
    refusesPicture "not a PGM picture (such a file begins with P5 or P2)" here
}

FilesThatAreNoPgmAreRefused() {
    local no="not a PGM picture (such a file begins with P5 or P2)"
    : > empty.pgm
    refusesPicture "$no" empty.pgm
    printf 'P' > p.pgm
    refusesPicture "$no" p.pgm
    printf '\211PNG\r\n\032\n' > png.pgm
    refusesPicture "$no" png.pgm
    printf 'P6\n64 64\n255\n' > colour.pgm
    refusesPicture "$no" colour.pgm
    printf 'P55\n64 64\n255\n' > mark.pgm
    refusesPicture "$no" mark.pgm
}

DamagedHeadersAreRefused() {
    local no="not a valid PGM picture:"
    printf 'P5\nx 64\n255\n' > a.pgm
    refusesPicture "$no its width is not a number" a.pgm
    printf 'P5\n64 -64\n255\n' > b.pgm
    refusesPicture "$no its height is not a number" b.pgm
    printf 'P5\n64 64x\n255\n' > c.pgm
    refusesPicture "$no its height is not a number" c.pgm
    printf 'P5\n64 0\n255\n' > d.pgm
    refusesPicture "$no its width, height or maximum grey level is 0" d.pgm
    printf 'P5\n64 64\n0\n' > e.pgm
    refusesPicture "$no its width, height or maximum grey level is 0" e.pgm
    printf 'P5\n64 64\n65536\n' > f.pgm
    refusesPicture "$no its maximum grey level is above 65535" f.pgm
    printf 'P5\n99999999999999999999999 64\n255\n' > g.pgm
    refusesPicture "$no its width is above 1000000" g.pgm
}

TruncatedPicturesAreRefused() {
    printf 'P5' > a.pgm
    refusesPicture "truncated: the file ends before its width" a.pgm
    printf 'P5\n64 64\n# and then' > b.pgm
    refusesPicture "truncated: the file ends before its maximum grey level" b.pgm
    picture 64 64 > whole.pgm
    head -c 1000 whole.pgm > c.pgm
    refusesPicture "truncated: 64x64 pixels announced, 987 of 4096 found" c.pgm
    printf 'P5\n64 64\n65535\n12345' > d.pgm
    refusesPicture "truncated: 64x64 pixels announced, 2 of 4096 found" d.pgm
    printf 'P2\n64 64\n255\n1 2 3' > e.pgm
    refusesPicture "truncated: the file ends before its next grey level" e.pgm
    printf 'P5\n1000000 1000000\n255\n0123456789' > f.pgm
    refusesPicture "truncated: 1000000x1000000 pixels announced, 10 of 1000000000000 found" f.pgm
}

BadGreyLevelsAreRefused() {
    printf 'P5\n64 64\n100\ne' > a.pgm
    refusesPicture "not a valid PGM picture: a grey level is above the maximum of 100" a.pgm
    printf 'P2\n64 64\n255\n1 2 256' > b.pgm
    refusesPicture "not a valid PGM picture: a grey level is above the maximum of 255" b.pgm
    printf 'P2\n64 64\n255\n1 2 3,4' > c.pgm
    refusesPicture "not a valid PGM picture: its next grey level is not a number" c.pgm
}

PicturesTooSmallAreRefused() {
    picture 31 64 > narrow.pgm
    refusesPicture "31x64 pixels, smaller than a tile of 32x32" narrow.pgm
    picture 64 31 > low.pgm
    refusesPicture "64x31 pixels, smaller than a tile of 32x32" low.pgm
    picture 63 64 > half.pgm
    refuses "half.pgm: its left half, 31x64 pixels, is smaller than a tile of 32x32" \
        --train half=half.pgm "b=$data/brick.pgm"
}

PicturesWithoutAMeasurableTileAreRefused() {
    { printf 'P5\n64 64\n255\n' && head -c 4096 /dev/zero; } > flat.pgm
    refuses "flat.pgm: no tile of its left half has a valid skewness, all are of one grey level" \
        --train flat=flat.pgm "b=$data/brick.pgm"
}

"$3"
