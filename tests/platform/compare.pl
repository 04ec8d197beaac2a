#!/usr/bin/perl
# compare.pl BENCH WINDOWS TABLE - compares the facts of the simulated machine with those of Windows. What differs must
# stand in the table with both values; a row that no longer differs, or has no reason, is an error too. Prints each
# finding and the figures; fails when there is a finding.
# compare.pl --real BENCH WINDOWS TABLE - WINDOWS are the facts of a real machine: prints what the bench does not do as
# that machine does, with the row of the table; what it refuses loudly is left out when the table foretells the machine.
use strict;
use warnings;

my %kinds = (wine => 'Wine 8 deviates', limit => 'refused loudly by the bench', real => 'only a real machine can decide');
my $real = @ARGV && $ARGV[0] eq '--real' && shift @ARGV;
my ($bench_file, $windows_file, $table_file) = @ARGV;
my $findings = 0;

sub finding { print "@_\n"; ++$findings; }

sub read_facts {
    my ($file) = @_;
    my (%facts, @order);
    open my $in, '<', $file or die "$file: $!\n";
    while (<$in>) {
        s/\r?\n$//;
        my ($name, $value) = /^(\S+\.\S+) = (.+)$/ or do { finding("$file:$.: no fact: $_"); next };
        finding("$name: told twice in $file") if exists $facts{$name};
        $facts{$name} = $value;
    }
    return \%facts;
}

# name  bench  windows  kind: reason; columns are two blanks apart, or more
sub read_table {
    my %rows;
    open my $in, '<', $table_file or die "$table_file: $!\n";
    while (<$in>) {
        next if /^\s*(#|$)/;
        my ($name, $bench, $windows, $kind, $reason) = /^(\S+) {2,}(\S.*?) {2,}(\S.*?) {2,}(\w+): (\S.*)$/;
        if (!defined $reason or !$kinds{$kind}) { finding("$table_file:$.: no row with a reason: $_"); next }
        finding("$name: two rows") if $rows{$name};
        $rows{$name} = { bench => $bench, windows => $windows, kind => $kind, reason => $reason };
    }
    return \%rows;
}

my ($bench, $windows, $table) = (read_facts($bench_file), read_facts($windows_file), read_table());
if ($real) {
    for my $name (sort keys %$bench) {
        my ($here, $there, $row) = ($bench->{$name}, $windows->{$name} // 'nothing', $table->{$name});
        next if $here eq $there or ($row and $row->{kind} eq 'limit' and $there eq $row->{windows});
        finding("$name: bench $here, this machine $there" . ($row ? " ($row->{kind}: $row->{reason})" : ''));
    }
    exit($findings != 0);
}

my %count = (equal => 0, map { $_ => 0 } keys %kinds);

for my $name (sort keys %{{%$bench, %$windows}}) {
    my ($here, $there, $row) = ($bench->{$name} // 'nothing', $windows->{$name} // 'nothing', delete $table->{$name});
    if (!$row) {
        $here eq $there ? ++$count{equal} : finding("$name: bench $here, Windows $there");
    } elsif ($here eq $there) {
        finding("$name: the table expects a difference, both say $here");
    } elsif ($here ne $row->{bench} or $there ne $row->{windows}) {
        finding("$name: bench $here, Windows $there; the table says $row->{bench} and $row->{windows}");
    } elsif (($here eq 'refused') != ($row->{kind} eq 'limit')) {
        finding("$name: bench $here, but the row is one of '$row->{kind}'");
    } else {
        ++$count{$row->{kind}};
    }
}
finding("$_: a row of the table without a fact") for sort keys %$table;

my $facts = keys %$bench;
for (["Platform facts, asked of the bench and of Windows", $facts], ["Platform facts, equal", $count{equal}],
     map { ["Platform facts, different: $kinds{$_}", $count{$_}] } qw(wine limit real)) {
    printf "figure: %-80s %s\n", @$_;
    if (my $path = $ENV{ZORPM_FIGURES}) {
        open my $out, '>>', $path or die "$path: $!\n";
        printf $out "%-80s %s\n", @$_;
    }
}
exit($findings != 0);
