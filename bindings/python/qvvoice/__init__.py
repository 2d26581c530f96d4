"""QV Voice: takes the echo and the noise out of a two-way call, and measures what is left.

Samples are numpy arrays of one dimension at 8000 or 16000 Hz: int16, or float32 whose full scale is 1.0 (1.0 is 32768;
values are rounded to 16 bits on the way in, those beyond full scale clip, NaN is 0). Whatever is wrong with an argument
is a ValueError that says what was found and what is needed.
"""

from ._qvvoice import (
    Call,
    __version__,
    check_parameters,
    load_parameters,
    measure,
    measure_folder,
    parameters_from_text,
    parameters_to_text,
    presets,
    process,
)

__all__ = [
    "Call",
    "check_parameters",
    "load_parameters",
    "measure",
    "measure_folder",
    "parameters_from_text",
    "parameters_to_text",
    "presets",
    "process",
]
