#!/usr/bin/env bash
# check_changelog.sh PROJECT WORK
#
# The changelog of the packages bears the date of the sources: what SOURCE_DATE_EPOCH says, else that of
# the commit, else that of the newest file; and it is signed by whom the configuration names. In a copy
# of the project that is only configured.
set -euo pipefail

project=$1
work=$(mktemp -d "$2/changelog-check-XXXXXX")
trap 'rm -rf "$work"' EXIT
copy=$work/copy
unset SOURCE_DATE_EPOCH

fail() {
    echo "check_changelog: $*" >&2
    exit 1
}

# changelog [NAME=VALUE...]: its last line after configuring with these variables of the environment.
changelog() {
    env "$@" cmake -S "$copy" -B "$work/build" -DVQREGLIB_TESTS=OFF -DVQREGLIB_BENCH=OFF \
        -DVQREGLIB_TOOLS=OFF -DVQREGLIB_EXAMPLES=OFF \
        -DVQREGLIB_MAINTAINER="A Name <name@home.arpa>" >"$work/log" 2>&1 || fail "$(cat "$work/log")"
    zcat "$work/build/packaging/libvqreglib-dev/changelog.Debian.gz" | tail -n 1
}

expect_date() {
    local expected=$1
    shift
    local line
    line=$(changelog "$@")
    [ "$line" = " -- A Name <name@home.arpa>  $expected" ] || fail "\"$line\" is not of $expected"
}

git_in_copy() {
    git -C "$copy" -c user.name=x -c user.email=x -c init.defaultBranch=x "$@" >"$work/log" 2>&1 ||
        fail "$(cat "$work/log")"
}

mkdir "$copy"
tar -C "$project" --exclude=./build --exclude=./.git -c . | tar -C "$copy" -x

find "$copy" -maxdepth 1 -type f -exec touch -d @1000000000 {} +
touch -d @1100000000 "$copy/README.md"
expect_date "Tue, 09 Nov 2004 11:33:20 +0000"
expect_date "Thu, 01 Jan 1970 00:00:07 +0000" SOURCE_DATE_EPOCH=7
expect_date "Tue, 09 Nov 2004 11:33:20 +0000" LC_ALL=C.UTF-8 TZ=Asia/Tokyo

if [ -z "$(command -v git)" ]; then
    exit 77
fi
git_in_copy init
expect_date "Tue, 09 Nov 2004 11:33:20 +0000" # there is no commit yet
export GIT_AUTHOR_DATE="@1300000000 +0000" GIT_COMMITTER_DATE="@1200000000 +0000"
git_in_copy commit --allow-empty --message x
expect_date "Thu, 10 Jan 2008 21:20:00 +0000"
expect_date "Thu, 01 Jan 1970 00:00:07 +0000" SOURCE_DATE_EPOCH=7
