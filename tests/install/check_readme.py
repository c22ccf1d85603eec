#!/usr/bin/env python3
"""check_readme.py README FOLDER: the README quotes the consumer's two files, which the tests build and run, to the letter."""
import sys
from pathlib import Path

readme, folder = Path(sys.argv[1]).read_text(), Path(sys.argv[2])
quotes = {"consumer.cpp": "cpp", "CMakeLists.txt": "cmake"}
missing = [name for name, language in quotes.items() if f"```{language}\n{(folder / name).read_text()}```" not in readme]
print("\n".join(f"the README's block differs from {folder / name}" for name in missing) or "quoted to the letter")
sys.exit(1 if missing else 0)
