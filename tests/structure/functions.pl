#!/usr/bin/env perl
# Refuses a function whose body has more than 40 lines. The formatter puts the braces of a function on lines of their own.
# Usage: tests/structure/functions.pl SOURCE
use strict;
use warnings;
use File::Find;

if (@ARGV != 1 || $ARGV[0] eq '--help') {
    print "Usage: tests/structure/functions.pl SOURCE\n";
    exit(@ARGV == 1 ? 0 : 2);
}
my $source = $ARGV[0];
my $most = 40; # lines between the braces
my ($functions, $tooLong) = (0, 0);

find({ no_chdir => 1, wanted => sub {
    $File::Find::prune = 1 if /\/(build|\.git)$/;
    return if !/\.(cpp|h)$/;
    open(my $text, '<', $_) or die "$_: $!\n";
    chomp(my @lines = <$text>);
    for my $begin (1 .. $#lines) {
        # A brace alone, after a parameter list or an initialiser; not a class, a namespace or a table.
        my ($indent) = $lines[$begin] =~ /^( *)\{$/ or next;
        next if $lines[$begin - 1] !~ /[)}](?: const)?(?: noexcept)?(?: override)?$/;
        my $end = $begin + 1;
        ++$end while $end < $#lines && $lines[$end] !~ /^$indent\}/;
        ++$functions;
        my $length = $end - $begin - 1;
        # The two exchanges are prescribed step by step, and are read as a list.
        my $head = join(' ', @lines[($begin > 4 ? $begin - 4 : 0) .. $begin - 1]);
        next if $length <= $most || $head =~ /\bAuthChipDriver(20B|30)::newSignature\(/;
        print STDERR substr($_, length($source) + 1) . ":$begin: a function of $length lines\n";
        ++$tooLong;
    }
} }, $source);
die "no function in $source\n" if !$functions;
exit($tooLong ? 1 : 0);
