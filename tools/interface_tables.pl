#!/usr/bin/perl
# interface_tables.pl [--write] - the tables of docs/interface.md are made from the code: control codes, keys, values and
# numbers from include/zorpm/zorpm.h, events from the event table. Says where the page differs, or writes it anew. It
# also looks at what the other pages say of codes and keys. Fails when something differs.
use strict;
use warnings;
use FindBin;
chdir "$FindBin::Bin/.." or die;

sub contents { local $/; open my $file, '<', $_[0] or die "$_[0]: $!\n"; return scalar <$file>; }

my $header = contents('include/zorpm/zorpm.h');
$header =~ s/[ ]*\\\n[ ]*/ /g; # joined lines

# The rows X(...) of the list NAME.
sub rows {
    my ($name) = @_;
    my ($list) = $header =~ /^#define ZORPM_$name\(X\)(.*)$/m or die "no list $name in zorpm.h\n";
    return map { [map { s/^\s+|\s+$//gr } split /,(?![^"]*"(?:[^"]*"[^"]*")*[^"]*$)/] } $list =~ /X\(((?:[^()"]|"[^"]*")*)\)/g;
}
sub unquoted { return $_[0] =~ s/^"|"$//gr; }

sub table {
    my ($head, @rows) = @_;
    my $line = sub { '| ' . join(' | ', @_) . " |\n" };
    return $line->(@$head) . '|' . ('---|' x @$head) . "\n" . join('', map { $line->(@$_) } @rows);
}

# ---- events: what each does, by the names of the operations ----

my %bits; # code => [notification, words]
for my $family ('TYPE2', 'TYPE22') {
    for (rows("${family}_NOTIFICATIONS")) {
        my ($k, $name, $code, $words) = @$_;
        $bits{hex $code} = ["`ZORPM_${family}_$name`, " . ($family eq 'TYPE2' ? 'Type2' : 'Type22') . " $k", unquoted($words)];
    }
}
my (@events, %told);
my $rows = contents('src/events/event_rows.h');
while ($rows =~ /^EVENT_ROW\((0x[0-9A-F]+), +"([^"]*)"(?:, +(.*))?\)$/mg) {
    my ($code, $name, $steps) = ($1, $2, $3 // '');
    my ($family, $k) = $steps =~ /\b(Type22?)\((\d+)\)/;
    my $bit = $bits{hex $code};
    my $told = $bit ? $bit->[0] : '';
    $told{hex $code} = 1;
    my $derived = $family ? "$family $k" : '';
    die "event $code: zorpm.h says '$told', the event table '$derived'\n" if ($told =~ s/.*, //r) ne $derived;
    my @actions = map { s/^Do<(.*)>\((.*)\)$/length $2 ? "$1($2)" : $1/er =~ s/\(\)$//r } grep { !/^Type/ } $steps =~ /(\w+(?:<\w+>)?\([^()]*\))/g;
    my $words = $bit ? $bit->[1] : $name =~ /^[A-Z_]+$/ ? '' : $name;
    push @events, ["`$code`", $words || $name, $told, join(', ', map { "`$_`" } @actions) || 'none'];
}
die "no event table\n" if @events < 40;
for my $code (sort { $a <=> $b } keys %bits) {
    die sprintf("zorpm.h: no event 0x%04X\n", $code) unless $told{$code};
}

# ---- names of zorpm.h ----

my (%strings, $reference);
my $below = 0;
for my $line (split /^/m, $header =~ s{/\*((?:(?!\*/).)*)\*/}{ my $c = $1; '/*' . ($c =~ s/\s+/ /gr) . '*/' }gser) {
    $reference .= "\n### \u$1\n\n" . "| Name | Is | |\n|---|---|---|\n" if $line =~ m{^/\* ---- (.*?)(?:;.*)? ---- };
    # A comment of its own right below a name belongs to it.
    if ($below && $line =~ m{^\s*/\*\s*((?!----).*?)\s*\*/$}) {
        my $comment = $1 =~ s/ \* / /gr;
        $reference =~ s/ *\|\n\z/ $comment |\n/;
    }
    $below = 0;
    next unless $line =~ /^#define (ZORPM_\w+)\s+((?:L"(?:[^"\\]|\\.)*"|ZORPM_\w+|\s)+|(?:0x)?[0-9a-f]+u)\s*(?:\/\*\s*(.*?)\s*\*\/\s*)*$/;
    my ($name, $value) = ($1, $2);
    my $comment = join ' ', $line =~ m{/\*\s*(.*?)\s*\*/}g;
    if ($value =~ /"/) {
        $value =~ s/(ZORPM_\w+)/$strings{$1} \/\/ die "zorpm.h: $1 is not known\n"/ge;
        $value =~ s/L"((?:[^"\\]|\\.)*)"/$1/g;
        $value =~ s/\\\\/\\/g;
        $value =~ s/(?<=\S) (?=\\)//g;
        $value =~ s/\s+$//;
        $strings{$name} = $value;
    } else { $value =~ s/u\s*$// }
    $below = 1;
    $reference .= "| `$name` | `$value` | $comment |\n";
}
die "no names in zorpm.h\n" if keys %strings < 60;
$reference =~ s/\n### [^\n]*\n\n\| Name \| Is \| \|\n\|---\|---\|---\|\n(?=\n|$)//g;

my %tables = (
    controls => table(['Code', 'Name', 'Does'], map { ["`$$_[0]`", "`SERVICE_CONTROL_MESSAGE_$$_[1]`", unquoted($$_[2])] } rows('CONTROL_CODES')),
    events => table(['Code', 'What has happened', 'Notification', 'What the service does'], @events),
    names => $reference =~ s/^\n//r,
);

# ---- compare ----

my $page = 'docs/interface.md';
my ($old, $status) = (contents($page), 0);
my $new = $old;
for my $name (sort keys %tables) {
    $new =~ s/(<!-- table: $name -->\n).*?(<!-- end -->)/$1\n$tables{$name}\n$2/s or die "$page: no table $name\n";
}
if (@ARGV && $ARGV[0] eq '--write') {
    open my $file, '>', $page or die "$page: $!\n";
    print $file $new;
    close $file;
} elsif ($new ne $old) {
    my %there = map { $_ => 1 } split /\n/, $old;
    my %right = map { $_ => 1 } split /\n/, $new;
    print "$page: not of the code: $_\n" for grep { /^[|#]/ && !$right{$_} } split /\n/, $old;
    print "$page: missing: $_\n" for grep { /^[|#]/ && !$there{$_} } split /\n/, $new;
    print "tools/interface_tables.pl --write makes the tables anew\n";
    $status = 1;
}

# The other pages: the codes that docs/README.md tells of, and keys below the service's own.
my ($controls) = contents('docs/README.md') =~ /\| Code \| Does \| Status report \|\n(.*?)\n\n/s;
my %named;
for (($controls // '') =~ /^\| ([0-9, to]+) \|/mg) {
    if (/(\d+) to (\d+)/) { $named{$_} = 1 for $1 .. $2 } else { $named{$_} = 1 for /\d+/g }
}
my %codes = map { $$_[0] => 1 } rows('CONTROL_CODES');
for (sort keys %{{%named, %codes}}) {
    next if $named{$_} && $codes{$_};
    print "docs/README.md: control code $_ ", ($codes{$_} ? 'is missing' : 'does not exist'), "\n";
    $status = 1;
}
my $known = join "\n", map { "$_\\" } values %strings;
for my $doc (glob 'docs/*.md') {
    my $text = contents($doc);
    while ($text =~ /`(?:SVC\\)?((?:Parameters2?|Transform|TMCT?|Configurations|Status)(?:\\[\w ]+)+)`/g) {
        my $key = $1;
        next if $known =~ /^SYSTEM\\CurrentControlSet\\Services\\ZORPMSVC\\\Q$key\E\\/m;
        # A function's subkey.
        next if $key =~ /^TMC\\(\w+)$/ && grep { $$_[1] eq $1 } rows('COOLING_FUNCTIONS');
        print "$doc: no key $key in zorpm.h\n";
        $status = 1;
    }
}
exit $status;
