# SPDX-License-Identifier: MIT
"""Commands under hx-sim."""
import os
import subprocess

HX_SIM = os.environ["HX_SIM"]
CAMERA = "HX02-V02.1-12345A-L"


def sim(*words, **options):
    return subprocess.run([HX_SIM, *words], capture_output=True, timeout=100, check=False,
                          **{"text": True, **options})
