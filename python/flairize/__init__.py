"""Flairize's picture effects for NumPy arrays.

Renders are bit for bit those of the flairize command. See docs/python.md.

    >>> import flairize
    >>> out = flairize.render(pixels, "posterize", colors=5)
"""
from ._flairize import (
    BACKWARD,
    CYCLE,
    FORWARD,
    FULL_PROGRESS,
    REVERSE_CYCLE,
    Effect,
    Settings,
    Slider,
    __version__,
    effects,
    frame_progress,
    render,
    sequence_position,
)

__all__ = [
    "BACKWARD", "CYCLE", "FORWARD", "FULL_PROGRESS", "REVERSE_CYCLE", "Effect", "Settings", "Slider",
    "__version__", "effects", "frame_progress", "render", "sequence_position",
]
