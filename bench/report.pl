#!/usr/bin/perl
# The report of the layer-2 interfaces as a Perl script: the library's client runs, in its order.
use strict;
use warnings;
my %open;
if (open my $circuits, '<', '/proc/net/atm/pvc') {
    $open{(split)[1]} = 1 while <$circuits>;
}
my %beside = (1 => 'PPPoE', 2 => 'PPPoE', 3 => 'DHCP');
my @report;
my $rows = `quorlet "size Atm;"`;
for (my $row = 0; $row < $rows; ++$row) {
    $rows = `quorlet "size Atm;"`;
    my $vpi = (split /\|/, `quorlet "selectrow Atm $row;"`)[2];
    my $state = $open{$vpi} ? 1 : 2;
    push @report, map { "$_$vpi=$state" } 'VC', $beside{$vpi} // ();
}
print join('|', @report), "\n";
