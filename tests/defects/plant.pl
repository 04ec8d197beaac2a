#!/usr/bin/perl
# plant.pl list|check [NAME...]   names the defects; says which of them no longer match
# plant.pl plant|lift TREE NAME   writes a defect into a copy of the tree; takes it out again
#
# A defect is a row of tests/defects/FOLDER.txt, its name FOLDER/ROW; FOLDER alone stands for all of its rows:
#
#     ROW: What it breaks.
#     in src/FOLDER/file.cpp
#       text that stays
#     - old text
#     + new text
#
# An empty line ends a row. Each "in" is one place, and a row may have several. What stays and the old text, one after
# the other, must be found exactly once in the file; white space does not count, and a line may begin and end anywhere.
# "needs FILTER" in a row has these sweeps run, too. A line with # at its beginning is a comment. The rows of bench.txt
# break the simulated machine: each has a "compare SCRIPT" that notices it, and they are listed only when they are named.
use strict;
use warnings;
use File::Basename;
use File::Copy;

my $folder_of_rows = dirname(__FILE__);
my (@rows, @wrong);

for my $list (sort glob "$folder_of_rows/*.txt") {
    my ($folder, $row, $place) = basename($list, '.txt');
    open my $lines, '<', $list or die "$list: $!\n";
    while (<$lines>) {
        chomp;
        next if /^#/;
        if (/^\s*$/) { $row = $place = undef }
        elsif (!$row && /^(\w+): (.+)$/) {
            push @rows, $row = {name => "$folder/$1", breaks => $2, needs => 'none', places => []};
        }
        elsif ($row && /^in (\S+)$/) { push @{$row->{places}}, $place = {file => $1, old => [], new => []} }
        elsif ($row && /^needs (\w+Sweep\.[\w*]+)$/) { $row->{needs} = $1 }
        elsif ($row && /^compare (\S+)$/ && -e "$folder_of_rows/../../$1") { $row->{needs} = $1 }
        elsif ($place && /^([-+ ]) *(.*)$/) {
            push @{$place->{old}}, $2 if $1 ne '+';
            push @{$place->{new}}, $2 if $1 ne '-';
        }
        else { push @wrong, "$list:$.: not a line of a row: $_" }
    }
}

sub read_file {
    my ($path) = @_;
    open my $file, '<', $path or return;
    local $/;
    return scalar <$file>;
}

sub pattern {
    my ($place) = @_;
    return join '\s*', map { quotemeta } grep { /\S/ } split //, join '', @{$place->{old}};
}

# Where the place is found in the text: (start, end) of each match.
sub matches {
    my ($place, $text) = @_;
    my $pattern = pattern($place);
    my @found;
    while ($text =~ /(?=($pattern))/g) { push @found, [$-[1], $+[1]] }
    return @found;
}

# Other files in which the place would be found, for whoever renews the row.
sub moved_to {
    my ($place) = @_;
    my @files = grep { matches($place, read_file($_)) == 1 } glob 'src/*/*.cpp src/*/*.h sim/*/*.cpp';
    return @files ? ': it is in ' . join(' and ', @files) : ": change it, or move the row's text after it";
}

# The files of a row with the defect in them, by name; undef when a place does not match.
sub planted {
    my ($row, $complain) = @_;
    my (%text, @spans);
    for my $place (@{$row->{places}}) {
        my $file = $place->{file};
        $text{$file} //= read_file($file);
        my @found = pattern($place) eq '' || !defined $text{$file} ? () : matches($place, $text{$file});
        if (@found != 1) {
            my $fault = @found         ? 'matches ' . @found . ' places of'
                : defined $text{$file} ? 'matches nothing in'
                :                        'names a missing file,';
            $complain->("$row->{name}: $fault $file" . (@found ? '' : moved_to($place)));
            return;
        }
        push @spans, {file => $file, start => $found[0][0], end => $found[0][1], new => join "\n", @{$place->{new}}};
    }
    for my $span (sort { $b->{start} <=> $a->{start} } @spans) {
        substr($text{$span->{file}}, $span->{start}, $span->{end} - $span->{start}) = $span->{new};
    }
    return \%text;
}

sub chosen {
    my @names = @_ or return @rows;
    my @all;
    for my $name (@names) {
        my @some = grep { $_->{name} eq $name || index($_->{name}, "$name/") == 0 } @rows;
        push @wrong, "no such defect: $name" if !@some;
        push @all, @some;
    }
    return @all;
}

my $usage = "plant.pl list|check [NAME...], plant.pl plant|lift TREE NAME\n";
my $command = shift // die $usage;
if ($command eq 'list') {
    print "$_->{name} $_->{needs} $_->{breaks}\n" for grep { @ARGV || $_->{name} !~ /^bench\// } chosen(@ARGV);
} elsif ($command eq 'check') {
    my %seen;
    for my $row (chosen(@ARGV)) {
        push @wrong, "$row->{name}: two rows of this name" if $seen{$row->{name}}++;
        push @wrong, "$row->{name}: has no place" if !@{$row->{places}};
        planted($row, sub { push @wrong, @_ });
    }
} elsif ($command =~ /^(plant|lift)$/ && @ARGV == 2) {
    my ($tree, $name) = @ARGV;
    my ($row) = chosen($name) or die "no such defect: $name\n";
    chdir $tree or die "$tree: $!\n";
    if ($command eq 'plant') {
        my $texts = planted($row, sub { die "$_[0]\n" });
        for my $path (keys %$texts) {
            copy($path, "$path.whole") or die "$path: $!\n";
            open my $file, '>', $path or die "$path: $!\n";
            print $file $texts->{$path};
        }
    } else {
        for my $path (map { $_->{file} } @{$row->{places}}) {
            next if !-e "$path.whole"; # two places of one file
            move("$path.whole", $path) or die "$path: $!\n";
            utime undef, undef, $path; # newer than what was built with the defect
        }
    }
} else {
    die $usage;
}
print "$_\n" for @wrong;
exit(@wrong ? 1 : 0);
