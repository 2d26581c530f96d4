"""Looks at a call with the Python module: what it leaves of the echo, how the filter learns, what parameters change.

    qvvoice scene --set double-talk --rate 16000 --out calls
    python3 examples/python/look_at_a_call.py calls/double-talk-16k figures

Written to be read from top to bottom, a cell at a time (`# %%`, as editors run them). Takes a folder with mic.wav and
ref.wav; writes levels.svg, filter.svg and parameters.svg. Needs numpy and qvvoice, nothing else.
"""

import pathlib
import sys
import wave

import numpy as np
import qvvoice

# %% The recording

folder, figures = map(pathlib.Path, sys.argv[1:3])
figures.mkdir(parents=True, exist_ok=True)


def read(name):
    with wave.open(str(folder / name), "rb") as file:
        return np.frombuffer(file.readframes(file.getnframes()), "<i2"), file.getframerate()


mic, rate = read("mic.wav")
ref, _ = read("ref.wav")

# %% Through the library; `compensate` puts the output in step with the microphone

done = qvvoice.process(mic, ref, rate=rate, compensate=True)
sent, trace = done["sent"], done["trace"]
print(f"{len(mic) / rate:.1f} s, delay of the transmit path {done['latency'][0]} samples")

# %% Figures: lines over time, as SVG

COLOURS = ["#888888", "#c33c3c", "#2b6cb0", "#2f855a"]


def plot(name, title, unit, curves, low, high):
    """curves: {label: (seconds, values)}; values beyond low and high are drawn at the edge."""
    width, height, left, top = 900, 260, 60, 40
    end = max(seconds[-1] for seconds, _ in curves.values())
    right, bottom = width - 20, height - 40
    x = lambda seconds: left + (right - left) * np.asarray(seconds) / end
    y = lambda values: bottom - (bottom - top) * (np.clip(values, low, high) - low) / (high - low)
    lines = [f'<text x="{left}" y="20" font-weight="bold">{title}</text>']
    for value in np.linspace(low, high, 5):
        lines.append(f'<path d="M{left} {y(value):.1f}H{right}" stroke="#dddddd"/>')
        lines.append(f'<text x="{left - 8}" y="{y(value) + 4:.1f}" text-anchor="end">{value:g}</text>')
    for second in np.linspace(0, end, 7):
        lines.append(f'<text x="{x(second):.1f}" y="{bottom + 18}" text-anchor="middle">{second:.0f} s</text>')
    for place, (colour, (label, (seconds, values))) in enumerate(zip(COLOURS, curves.items())):
        points = " ".join(f"{a:.1f},{b:.1f}" for a, b in zip(x(seconds), y(values)))
        lines.append(f'<polyline points="{points}" fill="none" stroke="{colour}"/>')
        lines.append(f'<text x="{right - 130 * place}" y="20" text-anchor="end" fill="{colour}">{label}</text>')
    lines.append(f'<text x="{left}" y="{height - 4}" fill="#666666">{unit}</text>')
    svg = (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" font-family="sans-serif" '
           f'font-size="12"><rect width="{width}" height="{height}" fill="white"/>' + "\n".join(lines) + "</svg>\n")
    (figures / name).write_text(svg)


def level(samples, block=0.1):
    """dBFS in blocks of `block` seconds; -100 in digital silence."""
    count = int(block * rate)
    blocks = samples[: len(samples) // count * count].reshape(-1, count) / 32768
    power = np.maximum(np.mean(blocks**2, axis=1), 1e-10)
    return np.arange(len(power)) * block, 10 * np.log10(power)


plot("levels.svg", "What comes in and what goes out", "dBFS, blocks of 0.1 s",
     {"reference": level(ref), "sent": level(sent), "microphone": level(mic)}, -100, 0)

# %% How the echo canceller gets there: its trace, a value per frame

times = np.arange(len(trace["leakage"])) * 0.02
plot("filter.svg", "The echo canceller", "dB",
     {"linear filter": (times, trace["linear_erle_db"]), "with suppression": (times, trace["erle_db"])}, -10, 70)
print(f"echo delay {trace['echo_delay'][-1]} samples, filter trained from {times[trace['filter_adapted'] > 0][:1]} s")

# %% Another trade between echo and near end: its figures, as `qvvoice measure` gives them

curves = {}
for parameters in [f"{kind}-{rate // 1000}k-20ms" for kind in ("clear", "balanced", "full-duplex", "echo-safe")]:
    results = qvvoice.measure_folder(folder, parameters=parameters)["measures"]
    shown = {key: results[key] for key in ("erle_far_db", "erle_double_db", "near_lost_percent")}
    print(f"{parameters:24}", *(f"{key} {value:.1f}" for key, value in shown.items() if value is not None),
          f"ERLE settled {results['erle_settled_db'] or 0:.1f} dB")
    curves[parameters] = level(qvvoice.process(mic, ref, parameters=parameters, rate=rate, compensate=True)["sent"])
plot("parameters.svg", "What is sent with each", "dBFS, blocks of 0.1 s", curves, -100, 0)

# %% Parameters of one's own: text in, 500 words out; a running call takes them without a click

text = f'base = "balanced-{rate // 1000}k-20ms"\n[tx.cng]\nenable = true\nnoise_gain = 2\n'
words = qvvoice.parameters_from_text(text)
with qvvoice.Call(f"balanced-{rate // 1000}k-20ms") as call:
    half = len(mic) // 2 // call.frame_length * call.frame_length
    first = call.transmit(mic[:half], ref[:half])
    print("comfort noise from the middle on; besides:", *(call.replace_parameters(words) or ["nothing"]))
    whole = (len(mic) - half) // call.frame_length * call.frame_length
    second = call.transmit(mic[half : half + whole], ref[half : half + whole])
print(f"digital silence: {np.mean(first == 0):.0%} of the first half, {np.mean(second == 0):.0%} of the second")
