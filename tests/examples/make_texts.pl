# make_texts.pl FOLDER FILES - writes random texts of several scripts into a folder and folders inside it,
# always the same.
use strict;
use warnings;
use utf8;

my ($folder, $files) = @ARGV;
srand(7);

# Letters from several scripts, with and without cases, in and beyond the basic plane.
my @alphabets = (
    [map { chr } 0x61 .. 0x7A], [map { chr } 0x41 .. 0x5A], [map { chr } 0xC0 .. 0xD6, 0xD8 .. 0xF6],
    [map { chr } 0x391 .. 0x3A1, 0x3A4 .. 0x3A9], [map { chr } 0x410 .. 0x44F], [map { chr } 0x4E00 .. 0x4E40],
    [map { chr } 0x10400 .. 0x1044F], [map { chr } 0x5D0 .. 0x5EA], ['e', "\x{301}", 'o', "\x{308}"], [0 .. 9]);
my @separators = (' ', ' ', ' ', ' ', "\n", "\r\n", ', ', '. ', '-', '_', "\t", "\x{2014}", "\x{3000}", ' ' . chr(0x1F600) . ' ',
    "\x{D7}", "\x{A0}", "\x{FFFD}", "'");
my @words;
for my $n (1 .. 4000) {
    my $letters = $alphabets[int(rand(@alphabets))];
    push @words, join '', map { $letters->[int(rand(@$letters))] } 1 .. 1 + int(rand(12));
}
push @words, 'x' x 128, 'y' x 129, "\x{10400}" x 64, "\x{10400}" x 65, "\x{130}stanbul", "\x{3A3}\x{3A3}", "stra\x{DF}e";

mkdir $folder;
mkdir "$folder/inner $_" for 1 .. 3;
mkdir "$folder/inner 1/empty";
for my $file (1 .. $files) {
    my $path = $folder . ($file % 4 ? "/inner " . $file % 4 : '') . "/text \x{E4} $file.txt";
    utf8::encode($path);
    open(my $out, '>:utf8', $path) or die "$path: $!";
    my $count = $file == 1 ? 0 : int(rand(3000));
    # Small numbers are drawn more often, as in real text.
    print $out $words[int(@words * rand() * rand())] . $separators[int(rand(@separators))] for 1 .. $count;
    close $out;
}
