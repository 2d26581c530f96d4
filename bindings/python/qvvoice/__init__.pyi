from os import PathLike
from types import TracebackType
from typing import Any, Literal, TypedDict, TypeVar, Union

import numpy as np
from numpy.typing import NDArray

Words = NDArray[np.int16]
Parameters = Union[str, PathLike[str], Words]
Samples = TypeVar("Samples", NDArray[np.int16], NDArray[np.float32])
FrameMs = Literal[16, 20]
Effect = Literal["transmit_pauses", "receive_pauses", "echo_relearned"]

__version__: str

class Processed(TypedDict):
    sent: Any
    played: Any
    latency: tuple[int, int]
    trace: dict[str, NDArray[Any]]

class Finding(TypedDict):
    severity: Literal["error", "warning"]
    line: int | None
    key: str
    message: str

class Call:
    def __init__(
        self, parameters: Parameters, *, frame_ms: FrameMs = 20, block: int | None = None, noise_seed: int = 0
    ) -> None: ...
    def transmit(self, mic: Samples, ref: Samples) -> Samples: ...
    def receive(self, far: Samples) -> Samples: ...
    def trace(self) -> dict[str, int | float]: ...
    def replace_parameters(self, parameters: Parameters) -> frozenset[Effect]: ...
    def reset(self) -> None: ...
    def close(self) -> None: ...
    @property
    def closed(self) -> bool: ...
    @property
    def rate(self) -> int: ...
    @property
    def frame_length(self) -> int: ...
    @property
    def latency(self) -> tuple[int, int]: ...
    def __enter__(self) -> Call: ...
    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, traceback: TracebackType | None
    ) -> None: ...

def presets() -> list[str]: ...
def load_parameters(source: Parameters) -> Words: ...
def parameters_from_text(text: str, folder: str = ".") -> Words: ...
def parameters_to_text(parameters: Parameters) -> str: ...
def check_parameters(parameters: Parameters) -> list[Finding]: ...
def process(
    mic: Samples | None = None,
    ref: Samples | None = None,
    far: Samples | None = None,
    *,
    parameters: Parameters | None = None,
    rate: Literal[8000, 16000] = 16000,
    frame_ms: FrameMs = 20,
    compensate: bool = False,
) -> Processed: ...
def measure(
    mic: Samples,
    ref: Samples,
    near: Samples | None = None,
    echo: Samples | None = None,
    noise: Samples | None = None,
    *,
    parameters: Parameters | None = None,
    rate: Literal[8000, 16000] = 16000,
    frame_ms: FrameMs = 20,
    name: str = "recording",
) -> dict[str, Any]: ...
def measure_folder(
    folder: str | PathLike[str], *, parameters: Parameters | None = None, frame_ms: FrameMs = 20
) -> dict[str, Any]: ...
