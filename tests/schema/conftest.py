"""What the tests of schemas and pages share. BUILD_DIR selects the build."""

import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1]))
