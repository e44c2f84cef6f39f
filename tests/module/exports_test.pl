# exports_test.pl HEADERS EXPORTS - compares the declarations in the public headers with the module's exports,
# both ways. EXPORTS holds one export a line: the symbol, a tab, the demangled name.
#
# A C function must be exported when a header declares it, and declared when it is exported. Of a class's
# members, each one declared without a body must be exported as often as it is overloaded; members with a
# body live in the header and may be exported too. Nothing else may be exported but the classes' virtual
# tables and type information. The compiler also exports the type information of the classes that these are
# made of, which a header then names without exporting them.
use strict;
use warnings;

my ($headers, $exportsFile) = @ARGV;
my @complaints;

my (%functions, %free, %members, %classes, %named);    # members: class -> name -> [without body, all]

# The text between a brace at $position and its partner, and the position behind it.
sub braced {
    my ($text, $position) = @_;
    my ($depth, $start) = (0, $position + 1);
    for (; $position < length $text; $position++) {
        my $c = substr($text, $position, 1);
        $depth++ if $c eq '{';
        $depth-- if $c eq '}';
        return (substr($text, $start, $position - $start), $position + 1) if $depth == 0;
    }
    die "a brace is not closed\n";
}

# The declarations of a scope: each as its text, and whether a body followed.
sub declarations {
    my ($body) = @_;
    my (@found, $current);
    $current = '';
    for (my $i = 0; $i < length $body;) {
        my $c = substr($body, $i, 1);
        if ($c eq ';') {
            push @found, [$current, 0];
            $current = '';
            $i++;
        } elsif ($c eq '{') {
            (undef, $i) = braced($body, $i);
            push @found, [$current, 1];
            $current = '';
        } else {
            $current .= $c;
            $i++;
        }
    }
    return @found;
}

# The function that a declaration declares; undef when it declares something else.
sub functionName {
    my ($declaration) = @_;
    $declaration =~ s/\b(?:public|protected|private)\s*://g;
    return undef if $declaration =~ /^\s*(?:typedef|using|friend|template|enum|class|struct|static_assert)\b/;
    return 'operator()' if $declaration =~ /\boperator\s*\(\s*\)\s*\(/;
    if ($declaration =~ /\boperator\s*([^\w\s(]+|\w[^(]*?)\s*\(/) {
        my $name = $1;
        return $name =~ /^\w/ ? 'operator conversion' : "operator$name";
    }
    return $1 if $declaration =~ /(~?\w+)\s*\(/;
    return undef;
}

sub readHeader {
    my ($file) = @_;
    open(my $in, '<', $file) or die "$file: $!";
    my $text = do { local $/; <$in> };
    close $in;
    $text =~ s{/\*.*?\*/}{}gs;
    $text =~ s{//[^\n]*}{}g;
    $text =~ s{^[ \t]*#(?:[^\n]*\\\n)*[^\n]*$}{}gm;
    $named{$1} = 1 while $text =~ /\bclass\s+(?:VORN_API\s+)?(\w+)/g;
    while ($text =~ /\bclass\s+VORN_API\s+(\w+)([^;{]*)\{/g) {
        my $class = $1;
        my ($body) = braced($text, pos($text) - 1);
        $classes{$class} = 1;
        for my $entry (declarations($body)) {
            my ($declaration, $hasBody) = @$entry;
            my $name = functionName($declaration) // next;
            $hasBody ||= $declaration =~ /=\s*(?:default|delete|0)\s*$/;
            my $counts = $members{$class}{$name} //= [0, 0];
            $counts->[0]++ unless $hasBody;
            $counts->[1]++;
        }
    }
    # What is left outside the classes: functions of their own.
    $text =~ s/\bclass\s+VORN_API\s+\w+[^;{]*(\{(?:[^{}]|(?1))*\})\s*;//g;
    while ($text =~ /\bVORN_API\b([^;{]*)[;{]/g) {
        my $name = functionName($1) // next;
        if ($name =~ /^Vorn/) { $functions{$name} = 1 }
        else { $free{$name}++ }
    }
}
readHeader($_) for glob("$headers/*.h $headers/*.hpp");

my (%exportedMembers, %exportedFree, %exportedFunctions);
open(my $in, '<', $exportsFile) or die "$exportsFile: $!";
while (<$in>) {
    chomp;
    my ($symbol, $plain) = split /\t/;
    if ($symbol !~ /^_Z/) {
        $exportedFunctions{$symbol} = 1;
        push @complaints, "exported, not declared: $symbol" unless $functions{$symbol};
        next;
    }
    if ($symbol =~ /^_ZT[VIS]/) {
        my ($class) = $plain =~ /for vorn::(?:\w+::)?(\w+)$/;
        my $known = $symbol =~ /^_ZTV/ ? \%classes : \%named;
        push @complaints, "exported, not declared: $plain" unless defined $class && $known->{$class};
        next;
    }
    # The variants of one constructor or destructor count once.
    next if $symbol =~ /C2E/ || $symbol =~ /D[02]E/;
    $plain =~ s/^vorn::operator/vorn::operator/;
    if ($plain =~ /^vorn::(\w+)::(~?\w+|operator\s*(?:\(\)|[^\w\s(]+|\w[^(]*))\(/ && $classes{$1}) {
        my ($class, $name) = ($1, $2);
        $name = 'operator conversion' if $name =~ /^operator\s+\w/;
        $name =~ s/\s+// if $name =~ /^operator\s+\W/;
        $exportedMembers{$class}{$name}++;
        my $counts = $members{$class}{$name};
        # Copy and move members that the compiler writes itself are exported with their class.
        next if $counts || $name =~ /^(?:\Q$class\E|~\Q$class\E|operator=)$/;
        push @complaints, "exported, not declared: $plain";
    } elsif ($plain =~ /^(?:\S.*\s)?vorn::(operator\s*[^\w\s(]+|\w+)\(/) {
        (my $name = $1) =~ s/\s+//g;
        $exportedFree{$name}++;
    } else {
        push @complaints, "exported, not declared: $plain";
    }
}
close $in;
die "no exports\n" unless %exportedFunctions;
die "no functions declared\n" unless %functions;

for my $name (sort keys %functions) {
    push @complaints, "declared, not exported: $name" unless $exportedFunctions{$name};
}
my ($memberCount, $freeCount) = (0, 0);
for my $class (sort keys %members) {
    for my $name (sort keys %{$members{$class}}) {
        my ($withoutBody, $all) = @{$members{$class}{$name}};
        my $exported = $exportedMembers{$class}{$name} // 0;
        $memberCount += $withoutBody;
        push @complaints, "vorn::${class}::$name: declared without a body $withoutBody times, exported $exported times"
            if $exported < $withoutBody;
        push @complaints, "vorn::${class}::$name: declared $all times, exported $exported times"
            if $exported > $all && $name !~ /^(?:\Q$class\E|~\Q$class\E|operator=)$/;
    }
}
for my $name (sort keys %{{%free, %exportedFree}}) {
    my ($declared, $exported) = ($free{$name} // 0, $exportedFree{$name} // 0);
    $freeCount += $declared;
    push @complaints, "$name: declared $declared times, exported $exported times" if $declared != $exported;
}

if (@complaints) {
    print "$_\n" for @complaints;
    exit 1;
}
printf "%d C functions, %d members of %d classes, %d free functions of the class layer: exported as declared\n",
    scalar(keys %functions), $memberCount, scalar(keys %members), $freeCount;
