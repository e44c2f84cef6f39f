#!/bin/sh
# wordindex_test.sh RUNNER PREFIX PROGRAM FOLDER - wordindex's counts against counts made natively, what it says
# about bad input, and what its image answers. FOLDER is emptied.
set -eu
runner=$1 prefix=$2 program=$3 folder=$4
here=$(cd "$(dirname "$0")" && pwd)
rm -rf "$folder"
mkdir -p "$folder"
cd "$folder"

failures=0
fail() {
    printf 'FAILED: %s\n' "$*"
    failures=$((failures + 1))
}
# wordindex ARGUMENT ... - leaves its output in out and err, its exit code in $code.
wordindex() {
    code=0
    "$runner" "$prefix" "$program" "$@" >out 2>err </dev/null || code=$?
}
expect_code() { [ "$code" = "$1" ] || { fail "$2: exit code $code instead of $1"; cat err; }; }
expect_line() { grep -qF -- "$1" err || { fail "$2: no line holds $1"; cat err; }; }

perl "$here/make_texts.pl" texts 60
# Links that a walk must not follow: it would go round.
ln -s . texts/round
ln -s .. 'texts/inner 1/back'
perl "$here/count_words.pl" texts >expected
[ "$(wc -l <expected)" -gt 3000 ] || fail 'the texts are too poor to tell anything'

# Counts, with one worker and with several.
for crew in '1 1' '2 2' '3 3'; do
    set -- $crew
    wordindex -w "$1" -t "$2" --all -o "image $1" texts
    expect_code 0 "$1 workers of $2 threads"
    # The order of equals differs between UTF-16 and code points.
    LC_ALL=C sort out >out.sorted
    LC_ALL=C sort expected | cmp -s - out.sorted || { fail "$1 workers: other counts"; diff expected out | head -n 5; }
    [ -s err ] && { fail "$1 workers complain"; cat err; }
done

# The image alone answers, in whatever spelling, after the texts are gone.
mv texts away
wordindex --image 'image 2' --all
expect_code 0 'the image'
LC_ALL=C sort out | cmp -s - out.sorted || fail 'the image holds other counts'
most=$(sed -n '1s/^ *[0-9]*  //p' expected)
wordindex --image 'image 2' "$(printf %s "$most" | tr a-z A-Z)" nosuchword
expect_code 1 'a word that is not there'
head -n 1 expected >line
head -n 1 out | cmp -s - line || fail 'another count for the most frequent word'
[ "$(sed -n 2p out)" = '         0  nosuchword' ] || fail 'no 0 for a missing word'
wordindex --image 'image 2' '!' "$most"
expect_code 1 'a question without a word'
expect_line 'no word is in it (VORN_E_INVALID_ARG)' 'a question without a word'
[ "$(wc -l <out)" = 1 ] || fail 'a question without a word: not one answer'
long=$(perl -e 'print "y" x 129')
wordindex --image 'image 2' "$long"
expect_code 1 'a word that is longer than words are'
[ "$(cat out)" = "         0  $long" ] || fail 'a word that is longer than words are: no 0 for it'
mv away texts

# Patterns and single files, and the same texts twice.
wordindex --all -o image 'texts\*.txt' 'texts/inner 2/*'
expect_code 0 'patterns'
mkdir part
cp texts/*.txt part
cp texts/inner\ 2/* part
perl "$here/count_words.pl" part | LC_ALL=C sort >part.expected
LC_ALL=C sort out | cmp -s - part.expected || fail 'patterns: other counts'

# Texts of some MiB without a space, one of them without any ASCII: no word and no character is cut in two.
mkdir dense
dense='srand 9; my ($first, $letters, $count, @separators) = map { /^0x/ ? hex : $_ } @ARGV;
    my @words = map { join "", map { chr($first + rand $letters) } 1 .. 1 + rand 9 } 1 .. 3000;
    print $words[rand @words], chr $separators[rand @separators] for 1 .. $count'
perl -CO -e "$dense" 0x61 26 400000 0x2C 0x3B >dense/ascii.txt
perl -CO -e "$dense" 0x4E00 40 200000 0x3002 0x2014 >dense/ideographs.txt
perl "$here/count_words.pl" dense | LC_ALL=C sort >dense.expected
wordindex --all -o image dense
expect_code 0 'texts without spaces'
LC_ALL=C sort out | cmp -s - dense.expected || fail 'texts without spaces: other counts'
[ -s err ] && { fail 'texts without spaces: complaints'; cat err; }

# Many files of less than a KiB come to more than nothing.
mkdir small-files
perl -e 'for (1 .. 1200) { open my $o, ">", "small-files/$_"; print $o " " x 1000 }'
wordindex -o image small-files
expect_code 0 'small files'
grep -q '^1,200 files, 1 MiB, 0 words' out || { fail 'small files: their size'; cat out; }

# Bad input: one line each, and everything else is counted.
cp -r texts bad
printf 'before\377\376after caf\303 end' >'bad/ill formed.txt'
perl "$here/count_words.pl" bad | LC_ALL=C sort >bad.expected
wordindex --all -o image bad 'no such folder' 'nothing\*.txt'
expect_code 1 'bad input'
expect_line 'ill formed.txt: not all of it is UTF-8; the rest is counted (VORN_E_CONVERSION)' 'ill-formed text'
expect_line 'no such folder: ' 'a missing folder'
expect_line '(VORN_E_NOT_FOUND)' 'a missing folder'
expect_line '(VORN_E_PATH_NOT_FOUND)' 'a pattern in a missing folder'
[ "$(wc -l <err)" = 3 ] || { fail 'not three lines for three problems'; cat err; }
LC_ALL=C sort out | cmp -s - bad.expected || fail 'bad input: other counts'

wordindex 'no such folder'
expect_code 2 'nothing to count'
wordindex -w 0 texts
expect_code 2 'no workers'
expect_line '(VORN_E_INVALID_ARG)' 'no workers'
wordindex
expect_code 2 'no arguments'

# A heap that is too small: what fits is counted, saved and verified.
perl -e 'open my $f, ">", "large.txt"; print $f "word$_ unique$_\n" for 1 .. 40000'
wordindex -m 1 -o small large.txt
expect_code 1 'a heap that is too small'
expect_line 'files counted in part: 1: the heap has no room for all words; -m makes it larger (VORN_E_NO_MEMORY)' 'a small heap'
wordindex --image small --all
expect_code 0 'the image of a small heap'
[ "$(wc -l <out)" -gt 5000 ] || fail 'the small heap holds too little'
grep -qvE '^         1  (word|unique)[0-9]+$' out && fail 'the small heap holds other words'
perl -e 'my $d = "many" . "y" x 200; mkdir $d; open my $f, ">", sprintf("$d/%0200d", $_) for 1 .. 1400'
wordindex -m 1 -o none many*
expect_code 2 'a heap that cannot hold the list of files'
expect_line '(VORN_E_NO_MEMORY)' 'a heap for the list'

# An image that cannot be used.
wordindex --image nothing.image word
expect_code 2 'a missing image'
expect_line 'nothing.image: ' 'a missing image'
printf 'SABO' >short.image
wordindex --image short.image word
expect_code 2 'a short image'
expect_line '(VORN_E_READ)' 'a short image'
cp large.txt other.image
wordindex --image other.image word
expect_code 2 'a file that is no image'
expect_line '(VORN_E_BAD_IMAGE)' 'a file that is no image'
wordindex -o 'no such folder/image' 'part/*.txt'
expect_code 2 'an image that cannot be written'

[ $failures = 0 ] || exit 1
cd ..
rm -rf "$folder"
[ $failures = 0 ] || exit 1
echo 'all counts agree'
