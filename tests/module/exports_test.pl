# exports_test.pl HEADERS DECLARED EXPORTED - compares the headers and what the compiler knows of them with the
# module's export table, both ways. See exports_test.sh.
use strict;
use warnings;

my ($headers, $declaredFile, $exportedFile) = @ARGV;
my @complaints;

# The export table.
my %exported;
open(my $in, '<', $exportedFile) or die "$exportedFile: $!";
my $inTable = 0;
while (<$in>) {
    $inTable = 1 if /^\[Ordinal\/Name Pointer\] Table/;
    next unless $inTable;
    last if /^\s*$/ && %exported;
    $exported{$1} = 1 if /^\s*\[\s*\d+\].*?([_A-Za-z]\w*)\s*$/;
}
close $in;
die "no exports found\n" unless %exported;

# The headers' text without comments: C functions, exported classes, exported free functions.
my (%functions, %classes, %freeFunctions);
for my $file (glob("$headers/*.h $headers/*.hpp")) {
    open(my $header, '<', $file) or die "$file: $!";
    local $/;
    my $text = <$header>;
    close $header;
    $text =~ s{/\*.*?\*/}{}gs;
    $text =~ s{//[^\n]*}{}g;
    $text =~ s{^\s*#.*?(?<!\\)\n}{}gms;
    $classes{$1} = 1 while $text =~ /\b(?:class|struct)\s+VORN_API\s+(\w+)/g;
    while ($text =~ /\bVORN_API\b(?!\s+\w+\s*(?:final\s*)?[:{])([^;{]*)\(/g) {
        my $head = $1;
        if ($head =~ /(operator\s*\S+?)\s*\(?/ && $file =~ /hpp$/) {
            (my $name = $1) =~ s/\s+//g;
            $name =~ s/\(.*//;
            $freeFunctions{$name}++;
        } elsif ($head =~ /^[^(]*?\b(Vorn\w+)\s*$/s || $head =~ /^[^(]*?\b(Vorn\w+)\s*\(/s) {
            $functions{$1} = 1;
        }
    }
}
die "no functions found in the headers\n" unless %functions;

for my $name (sort keys %functions) {
    push @complaints, "declared, not exported: $name" unless $exported{$name};
}

# Class members: each debugging entry with a linkage name, and whether the member needs to be exported.
my %members;    # linkage name -> required
{
    my ($linkage, $optional) = (undef, 0);
    my $flush = sub {
        if (defined $linkage && $linkage =~ /^_ZNK?4vorn/) {
            my $required = !$optional;
            $members{$linkage} = 1 if $required;
            $members{$linkage} //= 0;
        }
        ($linkage, $optional) = (undef, 0);
    };
    open(my $dwarf, '<', $declaredFile) or die "$declaredFile: $!";
    while (<$dwarf>) {
        if (/^\s*<[0-9a-f]+><[0-9a-f]+>: Abbrev Number/) { $flush->(); }
        elsif (/DW_AT_linkage_name\s*:.*?(_Z\w+)\s*$/) { $linkage = $1; }
        elsif (/DW_AT_artificial|DW_AT_deleted|DW_AT_defaulted|DW_AT_virtuality\s*:.*pure/) { $optional = 1; }
    }
    $flush->();
    close $dwarf;
}

# A constructor or destructor is declared once (C4, D4) and exported in its variants.
sub variants {
    my ($name) = @_;
    return map { (my $v = $name) =~ s/C4E/C${_}E/; $v } (1, 2) if $name =~ /C4E/;
    return map { (my $v = $name) =~ s/D4E/D${_}E/; $v } (0, 1, 2) if $name =~ /D4E/;
    return ($name);
}

# The class of a member: the last name before the member's own.
sub classOf {
    my ($linkage) = @_;
    my $rest = $linkage;
    $rest =~ s/^_ZN[KVRO]*4vorn//;
    my @names;
    while ($rest =~ s/^(\d+)//) {
        push @names, substr($rest, 0, $1, '');
    }
    return @names ? $names[0] : '';
}

my %allowed;
for my $linkage (keys %members) {
    my @variants = variants($linkage);
    $allowed{$_} = 1 for @variants;
    next unless $members{$linkage} && $classes{classOf($linkage)};
    next if grep { $exported{$_} } @variants;
    push @complaints, "declared, not exported: $linkage";
}

my %freeExported;
for my $name (sort keys %exported) {
    next if $functions{$name} || $allowed{$name};
    next if $name =~ /^_ZT[VISTc]/ && grep { $name =~ /$_/ } keys %classes;
    my $plain = `c++filt '$name'`;
    chomp $plain;
    if ($plain =~ /^(?:\S.*\s)?vorn::(operator\s*[^\s(]+)\(/) {
        (my $operator = $1) =~ s/\s+//g;
        $freeExported{$operator}++;
        next;
    }
    push @complaints, "exported, not declared: $name ($plain)";
}
for my $operator (sort keys %{{%freeFunctions, %freeExported}}) {
    my ($declared, $found) = ($freeFunctions{$operator} // 0, $freeExported{$operator} // 0);
    push @complaints, "$operator: declared $declared times, exported $found times" if $declared != $found;
}

if (@complaints) {
    print "$_\n" for @complaints;
    exit 1;
}
printf "%d C functions, %d class members, %d free operators: exported as declared\n", scalar(keys %functions),
    scalar(grep { $members{$_} } keys %members), eval { my $n = 0; $n += $_ for values %freeFunctions; $n };
