#!/usr/bin/env perl
# Draws the arrows between the folders of the source from its #include lines, and refuses what folders.txt does not name,
# a name that no include needs, a circle, and an arrow from what is shipped to a test.
# Usage: tests/structure/includes.pl FOLDERS SOURCE
use strict;
use warnings;
use File::Basename qw(dirname);
use File::Find;

if (@ARGV != 2) {
    print "Usage: tests/structure/includes.pl FOLDERS SOURCE\n";
    exit(@ARGV == 1 && $ARGV[0] eq '--help' ? 0 : 2);
}
my ($folders, $source) = @ARGV;
my @complaints;

# The declared arrows. Each folder may name only those above it.
my %declared;
open(my $declarations, '<', $folders) or die "$folders: $!\n";
while (<$declarations>) {
    next if /^#|^$/;
    my ($folder, $names) = /^([a-z\/]+):\s*(.*)$/ or die "$folders:$.: not understood: $_";
    for my $name (split ' ', $names) {
        push @complaints, "folders.txt: $folder names $name, which is not above it" if !exists $declared{$name};
        $declared{$folder}{$name} = 'unused';
    }
    $declared{$folder} //= {};
}

# The drawn arrows, each with one file as an example.
my %drawn;
find({ no_chdir => 1, wanted => sub {
    $File::Find::prune = 1 if /\/(build|\.git)$/;
    return if !/\.(cpp|h)$/;
    (my $file = $_) =~ s/^\Q$source\E\///;
    open(my $text, '<', $_) or die "$_: $!\n";
    while (<$text>) {
        next if !/^#include [<"]([^>"]+)[>"]/ || !-e "$source/$1";
        my ($from, $to) = (dirname($file), dirname($1));
        $drawn{$from}{$to} //= "$file:$." if $from ne $to;
    }
} }, $source);
die "no source in $source\n" if !%drawn;

for my $from (sort keys %drawn) {
    for my $to (sort keys %{ $drawn{$from} }) {
        my $isShipped = $from !~ /^(tests|fuzzers|benchmarks|examples)\b/;
        push @complaints, "$drawn{$from}{$to}: $from may not include from $to" if $isShipped && !$declared{$from}{$to};
        delete $declared{$from}{$to} if exists $declared{$from};
    }
}
for my $from (sort keys %declared) {
    push @complaints, "folders.txt: no file of $from includes from $_ any more" for sort keys %{ $declared{$from} };
}

# A circle: a folder that is met again on the way from it.
my %state;
sub visit {
    my ($folder, @way) = @_;
    if (($state{$folder} // '') eq 'open') {
        push @complaints, 'a circle: ' . join(' -> ', @way, $folder);
        return;
    }
    return if $state{$folder};
    $state{$folder} = 'open';
    visit($_, @way, $folder) for sort keys %{ $drawn{$folder} // {} };
    $state{$folder} = 'done';
}
visit($_) for sort keys %drawn;

print STDERR "$_\n" for @complaints;
exit(@complaints ? 1 : 0);
