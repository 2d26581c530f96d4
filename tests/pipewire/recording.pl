# usage: recording.pl join LEFT.wav RIGHT.wav BOTH.wav    two mono files of one rate as the channels of one
#        recording.pl room ROOM.wav                       the way from loudspeaker to microphone, at 48 kHz
#        recording.pl levels RECORDING.wav                channels: output, microphone, loudspeaker; see tests/pipewire/scene.toml
# 16-bit WAV files. Of the levels: echo and near end, output over microphone in dB.
use strict;
use warnings;

sub samples_of { # rate, channels, samples
  my ($path) = @_;
  open my $file, '<:raw', $path or die "$path: $!\n";
  local $/;
  my $bytes = <$file>;
  my ($channels, $rate) = unpack 'x22 v V', $bytes;
  my $at = index($bytes, 'data') + 8;
  return ($rate, $channels, [unpack 's<*', substr($bytes, $at)]);
}

sub write_file {
  my ($path, $rate, $channels, $data) = @_;
  open my $file, '>:raw', $path or die "$path: $!\n";
  print $file pack('A4 V A4 A4 V v v V V v v A4 V', 'RIFF', 36 + length $data, 'WAVE', 'fmt ', 16, 1, $channels, $rate,
    2 * $channels * $rate, 2 * $channels, 16, 'data', length $data), $data;
}

sub make_room { # 20 ms away, gone by 60 dB after 150 ms
  srand 1;
  my @tail = map { (rand() - 0.5) * 1500 * exp(-$_ * 6.9 / (0.15 * 48000)) } 0 .. 0.15 * 48000;
  write_file($ARGV[1], 48000, 1, pack 's<*', (0) x 960, 12000, @tail);
}

sub join_channels {
  my ($rate, undef, $left) = samples_of($ARGV[1]);
  my (undef, undef, $right) = samples_of($ARGV[2]);
  my $data = pack 's<*', map { $left->[$_], $right->[$_] } 0 .. $#$left;
  write_file($ARGV[3], $rate, 2, $data);
}

sub level { # mean power of a channel, in dB of a sample
  my ($x, $channels, $channel, $from, $to) = @_;
  my ($sum, $count) = (1e-3, 0);
  for (my $i = $from * $channels + $channel; $i < $to * $channels && $i < @$x; $i += $channels, ++$count) {
    $sum += $x->[$i]**2;
  }
  die "the recording ends before its scene does\n" if $count < $to - $from;
  return 10 * log($sum / $count) / log 10;
}

sub print_levels {
  my ($rate, $channels, $x) = samples_of($ARGV[1]);
  die "$channels channels, not 3\n" if $channels != 3;
  my $start = 0; # of the far end: the scene's times count from 0.3 s before it
  ++$start while $start * 3 < @$x && abs $x->[$start * 3 + 2] < 300;
  my $over = sub {
    my ($from, $to) = map { int($start + ($_ - 0.3) * $rate) } @_;
    return level($x, 3, 0, $from, $to) - level($x, 3, 1, $from, $to);
  };
  printf "echo %.1f near %.1f\n", $over->(3, 6.8), $over->(8, 10.8);
}

my %command = (join => \&join_channels, room => \&make_room, levels => \&print_levels);
$command{$ARGV[0]}->();
