#!/usr/bin/perl
# Stands between an SNMP manager and an agent, and loses what it is told to.
#
#     relay.pl lossy PORT    prints a port whose packets go to PORT and back, but for each third
#     relay.pl stream DIR    from DIR/relay to DIR/agent. While there is a file DIR/lose, with a
#                            name of %kinds and a command, the connection ends with the answer to
#                            that request, after the command
use strict;
use warnings;
use IO::Select;
use IO::Socket::INET;
use IO::Socket::UNIX;

$| = 1;
$SIG{PIPE} = "IGNORE"; # one who has hung up
my ($way, $where) = @ARGV;
my %kinds = (set => "\x08\x01\x00", confirm => "\x08\x03\x00\x02\x01\x02", revert => "\x08\x03\x00\x02\x01\x03");

# The command when an answer is to be lost.
sub lost {
    my ($packet) = @_;
    open(my $file, '<', "$where/lose") or return;
    my ($kind, $command) = <$file> =~ /^(\w+) ?(.*)/ or die;
    return $packet =~ /\xa3.*\Q$kinds{$kind}\E/s ? $command || 'true' : undef;
}

if ($way eq 'stream') {
    my $server = IO::Socket::UNIX->new(Local => "$where/relay", Listen => 9) or die $!;
    print "ready\n";
    while (my $manager = $server->accept) {
        my $agent = IO::Socket::UNIX->new(Peer => "$where/agent") or next;
        my $both = IO::Select->new($manager, $agent);
        my $command;
        LINK: while (my @ready = $both->can_read) {
            for my $from (@ready) {
                sysread($from, my $packet, 65536) or last LINK;
                $command //= lost($packet) if $from == $manager;
                if ($command && $from == $agent) {
                    unlink "$where/lose";
                    system $command;
                    last LINK;
                }
                syswrite($from == $agent ? $manager : $agent, $packet);
            }
        }
    }
}
my $front = IO::Socket::INET->new(Proto => 'udp', LocalAddr => '127.0.0.1') or die $!;
my $back = IO::Socket::INET->new(Proto => 'udp', PeerAddr => "127.0.0.1:$where") or die $!;
my ($count, $manager) = 0;
my $both = IO::Select->new($front, $back);
print $front->sockport, "\n";
while (my @ready = $both->can_read) {
    for my $from (@ready) {
        my $sender = recv($from, my $packet, 65536, 0);
        $manager = $sender if $from == $front;
        next if ++$count % 3 == 0;
        $from == $front ? send($back, $packet, 0) : send($front, $packet, 0, $manager);
    }
}
