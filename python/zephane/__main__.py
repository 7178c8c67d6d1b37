"""``python3 -m zephane``."""

import sys

from .command_line import main

sys.exit(main(program="python3 -m zephane"))
