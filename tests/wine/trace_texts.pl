#!/usr/bin/perl
# trace_texts.pl EXE - the texts of src/ that only the trace prints must not be in a released executable: what Trace(),
# TRACE_NAME() and Failed() are given, and the names of the operations. Prints those that are; fails when there is one.
# Looks into a copy with a planted text first, so that a look that finds nothing can find something.
use strict;
use warnings;

my $exe = shift or die "use: trace_texts.pl EXE\n";
my $sources = $0 =~ s{tests/wine/[^/]*$}{src}r;
my %texts;

# Every literal of a macro's arguments, its parts between conversions and escapes.
sub add_literals {
    my ($arguments) = @_;
    while ($arguments =~ /"((?:[^"\\]|\\.)*)"/g) {
        for my $part (split /%[-0-9.]*[a-zA-Z]+|\\./, $1) {
            $texts{$part} = 1 if length $part >= 10;
        }
    }
}

for my $file (glob "$sources/*/*.cpp $sources/*/*.h") {
    next if $file =~ m{(^|/)src/(ctl/|common/trace)};
    open my $in, '<', $file or die "$file: $!\n";
    my $source = do { local $/; <$in> };
    $source =~ s/"\s*\n\s*L?"//g; # one literal on several lines
    add_literals($1) while $source =~ /\b(?:Trace|Failed|TRACE_NAME)\(((?:[^;"]|"(?:[^"\\]|\\.)*")*?)\)\s*[;,})]/g;
    $texts{$1} = 1 while $source =~ /\bOPERATION\(\s*[\w ]+?[ *]*,\s*(\w{10,}),/g;
}
# The control program says some of the same words to people.
if ($exe =~ m{zorpmctl[^/]*$}) {
    for my $file (glob "$sources/ctl/*.cpp $sources/ctl/*.h $sources/../include/zorpm/*.h") {
        open my $in, '<', $file or die "$file: $!\n";
        my $source = do { local $/; <$in> };
        delete @texts{ grep { index($source, $_) >= 0 } keys %texts };
    }
}
die "no texts of the trace found in src/\n" if keys %texts < 300;

sub found_in {
    my ($image) = @_;
    return grep { index($image, join '', map { "$_\0" } split //) >= 0 } sort keys %texts;
}

open my $in, '<:raw', $exe or die "$exe: $!\n";
my $image = do { local $/; <$in> };
my ($planted) = sort keys %texts;
my $with_planted = $image . join('', map { "$_\0" } split //, $planted);
die "a planted text is not found\n" unless grep { $_ eq $planted } found_in($with_planted);

my @found = found_in($image);
print "only the trace prints: $_\n" for @found;
exit(@found ? 1 : 0);
