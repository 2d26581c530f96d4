"""The module gives the tool's bytes and figures, takes what it documents, and refuses the rest by name."""

import ast
import concurrent.futures
import contextlib
import io
import json
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest
import warnings

import numpy as np
import qvvoice
from calls import SOURCE_DIR, made_call, read_wav, tool, write_wav

PRESET = "clear-16k-20ms"


def layout_of(preset):
    rate, frame_ms = re.fullmatch(r".*-(\d+)k-(\d+)ms", preset).groups()
    return int(rate) * 1000, int(frame_ms)


class Bytes(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.path = pathlib.Path(self.folder.name)

    def by_tool(self, rate, signals, *options):
        """What `qvvoice process` makes of the signals, by the names of its options."""
        words = ["process", "--out", self.path / "out.wav", *options]
        for name, samples in signals.items():
            write_wav(self.path / f"{name}.wav", samples, rate)
            words += [f"--{name}", self.path / f"{name}.wav"]
        tool(*words)
        return read_wav(self.path / "out.wav")

    def test_every_preset_gives_the_tools_bytes(self):
        """Whole files and a call frame by frame; lengths that no frame divides, and that differ."""
        self.assertGreaterEqual(len(qvvoice.presets()), 16)
        for preset in qvvoice.presets():
            rate, frame_ms = layout_of(preset)
            mic, ref = made_call(rate, 2.013)
            ref = ref[:-77]
            layout = {"parameters": preset, "frame_ms": frame_ms}
            for compensate in (False, True):
                with self.subTest(preset=preset, compensate=compensate):
                    expected = self.by_tool(rate, {"mic": mic, "ref": ref}, "--para", preset, "--frame-ms", frame_ms,
                                            *["--compensate"] * compensate)
                    got = qvvoice.process(mic, ref, rate=rate, compensate=compensate, **layout)
                    self.assertEqual(got["sent"].dtype, np.int16)
                    np.testing.assert_array_equal(got["sent"], expected)
            with self.subTest(preset=preset, call=True), qvvoice.Call(**layout) as call:
                whole = len(ref) // call.frame_length * call.frame_length
                frames = np.split(np.arange(whole), whole // call.frame_length)
                sent = np.concatenate([call.transmit(mic[frame], ref[frame]) for frame in frames])
                np.testing.assert_array_equal(sent, qvvoice.process(mic, ref, rate=rate, **layout)["sent"][:whole])
                self.assertGreater(np.abs(sent).max(), 0)

    def test_both_directions_and_the_trace_are_the_tools(self):
        mic, far = made_call(16000, 3)
        sent = self.by_tool(16000, {"mic": mic, "far": far}, "--played", self.path / "played.wav",
                            "--trace", self.path / "trace.csv")
        got = qvvoice.process(mic, far=far)
        np.testing.assert_array_equal(got["sent"], sent)
        np.testing.assert_array_equal(got["played"], read_wav(self.path / "played.wav"))
        table = np.genfromtxt(self.path / "trace.csv", delimiter=",", names=True)
        self.assertEqual(["time_s", *got["trace"]], list(table.dtype.names))
        self.assertEqual(len(table), 150)
        for name, column in got["trace"].items():
            np.testing.assert_allclose(column, table[name], rtol=1e-5, err_msg=name)

    def test_floats_are_int16_over_32768_and_a_channel_is_taken_as_it_lies(self):
        mic, ref = made_call(16000, 1)
        scale = np.float32(32768)
        as_words = qvvoice.process(mic, ref)["sent"]
        as_floats = qvvoice.process(mic / scale, ref / scale)["sent"]
        self.assertEqual(as_floats.dtype, np.float32)
        np.testing.assert_array_equal(as_floats * scale, as_words)
        stereo = np.stack((mic, ref), axis=1)
        np.testing.assert_array_equal(qvvoice.process(stereo[:, 0], stereo[:, 1])["sent"], as_words)
        odd = np.array([2, -2, np.nan, 0.4 / 32768, 0.6 / 32768] * 64, np.float32)
        rounded = np.array([32767, -32768, 0, 0, 1] * 64, np.int16)
        with qvvoice.Call(PRESET) as one, qvvoice.Call(PRESET) as other:
            for _ in range(3):
                np.testing.assert_array_equal(one.transmit(odd, odd) * scale, other.transmit(rounded, rounded))
            self.assertEqual(one.trace(), other.trace())

    def test_measures_are_the_tools(self):
        tool("scene", "--set", "double-talk", "--rate", 8000, "--out", self.path)
        folder = self.path / "double-talk-8k"
        expected = json.loads(tool("measure", folder, "--json"))["recordings"][0]
        got = qvvoice.measure_folder(folder)
        parts = {name: read_wav(folder / f"{name}.wav") for name in ("mic", "ref", "near", "echo", "noise")}
        blind = qvvoice.measure(**parts, rate=8000)
        for results in (expected, got, blind):
            for speed in ("real_time_factor", "worst_frame_percent"):
                self.assertGreater(results["measures"].pop(speed), 0)
        self.assertEqual(got, expected)
        for name in ("out_level_dbfs", "mic_level_dbfs", "ref_level_dbfs"):
            self.assertEqual(blind["measures"][name], expected["measures"][name])
            self.assertIsNotNone(blind["measures"][name])


class Refusals(unittest.TestCase):
    def test_what_is_wrong_with_an_array_is_said(self):
        call = qvvoice.Call(PRESET)
        frame, floats = np.zeros(320, np.int16), np.zeros(320, np.float32)
        for words, run in {
            "mic: found list; needed: a numpy array of int16, or of float32": lambda: call.transmit([0] * 320, frame),
            "ref: found dtype float64": lambda: call.transmit(frame, frame.astype(float)),
            "far: found dtype >i2": lambda: call.receive(frame.astype(">i2")),
            r"mic: found shape \(160, 2\); needed: one dimension": lambda: call.transmit(frame.reshape(160, 2), frame),
            "mic: found 319 samples; needed: a multiple of 320": lambda: call.transmit(frame[1:], frame[1:]),
            "ref: found 640 samples; needed: 320, as mic has": lambda: call.transmit(frame, np.tile(frame, 2)),
            "ref: found dtype float32; needed: int16, as mic has": lambda: call.transmit(frame, floats),
            "mic, ref, far: found another choice": lambda: qvvoice.process(frame),
            "near: found 100 samples; needed: 320, as mic has": lambda: qvvoice.measure(frame, frame, near=frame[:100]),
            "rate: 44100 Hz is not served": lambda: qvvoice.process(frame, frame, rate=44100),
            "frame: 10 ms is not served": lambda: qvvoice.Call(PRESET, frame_ms=10),
            "block: found -1": lambda: qvvoice.Call(PRESET, block=-1),
            "parameter file is for 16000 Hz": lambda: qvvoice.process(frame, frame, rate=8000, parameters=PRESET),
            r"parameters: found dtype int64, shape \(3,\); needed: int16 of shape \(500,\)": lambda: qvvoice.Call(np.arange(3)),
            "parameters: found int; needed: the name of a preset": lambda: qvvoice.Call(3),
            "neither a file nor a preset": lambda: qvvoice.Call("balanced-16k-20m"),
            "word 9 is 0; 1111": lambda: qvvoice.Call(np.zeros(500, np.int16)),
            "text:2: error: tx.agc.enabel": lambda: qvvoice.parameters_from_text("rate = 8000\ntx.agc.enabel = true"),
        }.items():
            with self.assertRaisesRegex(ValueError, words):
                run()
        self.assertEqual(call.trace()["tx_frame"], 0)
        call.close()
        self.assertTrue(call.closed)
        for run in (lambda: call.transmit(frame, frame), call.trace, lambda: call.rate):
            with self.assertRaisesRegex(ValueError, "the call is closed"):
                run()


class Parameters(unittest.TestCase):
    def test_text_and_words_are_the_tools_and_come_back(self):
        for preset in qvvoice.presets():
            words = qvvoice.load_parameters(preset)
            text = qvvoice.parameters_to_text(words)
            self.assertEqual(text, tool("para", "show", preset))
            np.testing.assert_array_equal(qvvoice.parameters_from_text(text), words)
        with tempfile.TemporaryDirectory() as folder:
            packed = pathlib.Path(folder) / "words.para"
            packed.write_bytes(words.tobytes())
            np.testing.assert_array_equal(qvvoice.load_parameters(packed), words)

    def test_wrong_values_are_found_and_warned_about(self):
        words = qvvoice.parameters_from_text(f'base = "{PRESET}"\n[tx.agc]\nknee_low_db = 200\n')
        findings = qvvoice.check_parameters(words)
        self.assertIn("tx.agc.knee_low_db", {finding["key"] for finding in findings})
        self.assertEqual(qvvoice.check_parameters(PRESET), [])
        with self.assertWarnsRegex(UserWarning, "values are wrong"), qvvoice.Call(words):
            pass
        with warnings.catch_warnings(record=True) as caught, qvvoice.Call(PRESET):
            self.assertEqual(caught, [])

    def test_a_running_call_takes_new_ones(self):
        mic, ref = made_call(16000, 1)
        with qvvoice.Call(PRESET) as call:
            call.transmit(mic, ref)
            self.assertEqual(call.replace_parameters(PRESET), frozenset())
            without = qvvoice.parameters_from_text(f'base = "{PRESET}"\n[aec]\nenable = false\n')
            self.assertIn("transmit_pauses", call.replace_parameters(without))
            for _ in range(2): # fades out, and is silent
                sent = call.transmit(mic[:320], ref[:320])
            np.testing.assert_array_equal(sent, 0)
            with self.assertRaisesRegex(ValueError, "8000 Hz"):
                call.replace_parameters("clear-8k-20ms")
            with self.assertRaisesRegex(ValueError, "state-space echo canceller on or off"):
                call.replace_parameters("balanced-16k-20ms")


class Calls(unittest.TestCase):
    def test_blocks_of_any_length_delay_by_what_latency_says(self):
        mic, ref = made_call(16000, 1)
        with qvvoice.Call(PRESET) as whole, qvvoice.Call(PRESET, block=0) as any_length:
            delay = any_length.latency[0] - whole.latency[0]
            self.assertEqual(delay, 319)
            cuts = np.cumsum([1, 440, 0, 1000, 37])
            pieces = zip(np.split(mic, cuts), np.split(ref, cuts))
            sent = np.concatenate([any_length.transmit(*piece) for piece in pieces])
            np.testing.assert_array_equal(sent[delay:], whole.transmit(mic, ref)[:-delay])

    def test_other_threads_run_while_frames_do_and_closing_breaks_none(self):
        """Both directions at once give what they give alone; the trace is seen to move, and the call is closed, while a
        transmit runs."""
        mic, ref = made_call(16000, 20)
        with qvvoice.Call(PRESET) as alone:
            expected = alone.transmit(mic, ref), alone.receive(ref)
        for closing in (False, True):
            call, seen = qvvoice.Call(PRESET), set()
            with concurrent.futures.ThreadPoolExecutor() as pool:
                transmit, receive = pool.submit(call.transmit, mic, ref), pool.submit(call.receive, ref)
                while not transmit.done() and not (closing and any(seen)):
                    seen.add(call.trace()["tx_frame"])
                if closing:
                    receive.result()
                    call.close()
                for one, other in zip((transmit, receive), expected):
                    np.testing.assert_array_equal(one.result(), other)
            self.assertTrue(any(0 < frame < 1000 for frame in seen), "the interpreter's lock was held")


def arguments_of(function):
    arguments = function.args
    return [argument.arg for argument in arguments.posonlyargs + arguments.args + arguments.kwonlyargs]


class Stubs(unittest.TestCase):
    def test_they_name_what_there_is(self):
        """Every public name, member and argument: the signature that pybind11 writes first into a docstring."""
        stub = ast.parse((pathlib.Path(qvvoice.__file__).parent / "__init__.pyi").read_text())
        functions = {node.name: node for node in stub.body if isinstance(node, ast.FunctionDef)}
        call = next(node for node in stub.body if isinstance(node, ast.ClassDef) and node.name == "Call")
        members = {node.name: node for node in call.body}
        self.assertEqual({*functions, "Call"}, set(qvvoice.__all__))
        public = {name for name, value in vars(qvvoice.Call).items() if not name.startswith("_")}
        self.assertEqual(public, {name for name in members if not name.startswith("_")})
        checked = 0
        for owner, stubs in ((qvvoice, functions), (qvvoice.Call, members)):
            for name, function in stubs.items():
                signature = (getattr(owner, name).__doc__ or "").split("\n")[0]
                if not signature.startswith(name + "(") or name == "__exit__":
                    continue
                checked += 1
                names = re.findall(r"(\w+):", re.sub(r"\w+::|= '[^']*'", "", signature))
                self.assertEqual(names, arguments_of(function), name)
        self.assertGreaterEqual(checked, 14)


class Docs(unittest.TestCase):
    def test_what_the_page_shows_runs(self):
        page = (pathlib.Path(SOURCE_DIR) / "docs/python.md").read_text()
        blocks = re.findall(r"^```python\n(.*?)^```", page, re.DOTALL | re.MULTILINE)
        self.assertGreaterEqual(len(blocks), 4)
        with tempfile.TemporaryDirectory() as folder, contextlib.chdir(folder), contextlib.redirect_stdout(io.StringIO()):
            exec("\n".join(blocks), {})

    def test_the_example_writes_its_figures(self):
        with tempfile.TemporaryDirectory() as folder:
            tool("scene", "--set", "double-talk", "--rate", 16000, "--out", folder)
            script = pathlib.Path(SOURCE_DIR) / "examples/python/look_at_a_call.py"
            run = subprocess.run([sys.executable, "-B", script, f"{folder}/double-talk-16k", folder], check=True,
                                 capture_output=True, text=True)
            self.assertRegex(run.stdout, r"ERLE")
            figures = sorted(pathlib.Path(folder).glob("*.svg"))
            self.assertGreaterEqual(len(figures), 2)
            for figure in figures:
                self.assertGreater(figure.read_text().count(" "), 200)


if __name__ == "__main__":
    unittest.main()
