# count_words.pl FOLDER - counts the words below a folder, natively and without the library: the count that
# wordindex's is compared with. Prints "count word" lines, most frequent first.
#
# A word is a run of letters, digits and combining marks; which code points these are is written down once more
# here, as wordindex documents it. Words of more than 128 UTF-16 units do not count. What is no UTF-8 separates.
use strict;
use warnings;
use utf8;
use Encode ();
use File::Find ();

my $wordPoint = join '',
    '0-9A-Za-z\x{AA}\x{B5}\x{BA}\x{C0}-\x{D6}\x{D8}-\x{F6}\x{F8}-\x{1FFF}\x{2C00}-\x{2DFF}\x{2E80}-\x{2FFF}',
    '\x{3005}-\x{3007}\x{3040}-\x{D7FF}\x{F900}-\x{FDFF}\x{FE70}-\x{FEFC}\x{FF10}-\x{FF19}\x{FF21}-\x{FF3A}',
    '\x{FF41}-\x{FF5A}\x{FF66}-\x{FFDC}\x{10000}-\x{1EFFF}\x{20000}-\x{3FFFF}';

sub Units { return length(Encode::encode('UTF-16LE', $_[0])) / 2 }

my (%counts, $bytes);
File::Find::find({no_chdir => 1, wanted => sub {
    return unless -f $_;
    open(my $file, '<:raw', $_) or die "$_: $!";
    local $/;
    my $text = Encode::decode('UTF-8', scalar(<$file>));
    close $file;
    while ($text =~ /([$wordPoint]+)/g) {
        my $word = $1;
        next if Units($word) > 128;
        # A capital sigma that ends a word becomes the final form; Perl's lc knows no context.
        $word =~ s/(?<=\p{L})\x{3A3}$/\x{3C2}/;
        $word = lc $word;
        ++$counts{$word} if Units($word) <= 128;
    }
}}, $ARGV[0]);

binmode STDOUT, ':utf8';
printf "%10d  %s\n", $counts{$_}, $_ for sort { $counts{$b} <=> $counts{$a} || $a cmp $b } keys %counts;
