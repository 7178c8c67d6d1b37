"""The texts of the library's refusals and failures."""

from __future__ import annotations

NOT_AN_OBJECT = "Expected a JSON object."
BAD_CONFIGURATION = (
    "Invalid resolution, Reynolds number, k0, CFL, fixed timestep, method or start spectrum."
)
BAD_SEED = "Seed must be UInt64."
BAD_ADVANCE = "Invalid steps or endpoint."
BAD_REYNOLDS = "Re must be finite and positive."
BAD_CFL = "CFL must be finite and positive."
UNKNOWN_OPERATION = "Unknown engine operation."
FLOW_LOST = "The flow became non-finite or a GPU operation failed. Reset to recover."
UNHEALTHY = "The solver encountered a non-finite field or timestep."
BAD_SAMPLES = "Initial vorticity must contain exactly N² finite Float32 samples."
BAD_SIZE = "Initial file must contain exactly N² Float32 samples."
UNREADABLE = "Cannot read initial file."
UNWRITABLE = "Cannot write export file."
NO_FLOW = "No flow to save."
TWO_STARTS = "Initial file and state exclude each other."
UI_THREAD = "UI calls require the main thread."
UI_CLOSED = "Closed UI."
UNKNOWN_UI_OPERATION = "Unknown UI operation."
BAD_LIMITS = "Invalid benchmark limits."
NO_FRAME = "No completed frame."
NO_RENDERER = "No native renderer."
NO_DRIVER = "No Vulkan device found."
NO_MATCHING_DRIVER = "No CUDA-compatible Vulkan device found."
NO_CANVAS = "Cannot create native canvas."
BAD_PARENT = "Invalid parent HWND."
HAS_CANVAS = "Canvas is already attached."
BAD_PICTURE_SIZE = "PNG size must be 1 through 8192."
PARSE_ERROR = "[json.exception.parse_error.101] parse error at line "


def type_error(wanted: str, got: str) -> str:
    return f"[json.exception.type_error.302] type must be {wanted}, but is {got}"
