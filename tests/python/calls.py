"""A made call, WAV files, and the tool beside the module."""

import os
import subprocess
import wave

import numpy as np

TOOL = os.environ["QVVOICE"]
SOURCE_DIR = os.environ["SOURCE_DIR"]


def made_call(rate, seconds, seed=1):
    """Bursts of noise that were played, and what a microphone hears of them beside bursts of its own; int16."""
    random = np.random.default_rng(seed)
    count = int(rate * seconds)
    burst = np.arange(count) // (rate // 4)
    ref = random.normal(0, 5000, count) * (burst % 2)
    mic = random.normal(0, 1500, count) * np.where(burst % 3 == 0, 1, 0.01)
    mic[300:] += ref[:-300] / 4
    return tuple(np.clip(signal, -32768, 32767).astype(np.int16) for signal in (mic, ref))


def write_wav(path, samples, rate):
    with wave.open(str(path), "wb") as file:
        file.setparams((1, 2, rate, 0, "NONE", ""))
        file.writeframes(samples.astype("<i2").tobytes())


def read_wav(path):
    with wave.open(str(path), "rb") as file:
        return np.frombuffer(file.readframes(file.getnframes()), "<i2")


def tool(*words):
    """What `qvvoice ...` prints; an error when it fails."""
    return subprocess.run([TOOL, *map(str, words)], check=True, capture_output=True, text=True).stdout
