"""Checks that docs/errors.md names every message of the library. Run from the project's folder."""
import re
import sys
from pathlib import Path

# Texts that no exception carries: the status print, the traceback's own frames and marks.
NOT_MESSAGES = re.compile(r"\\t|Cache statistics|^#|: in func |\\n  m|^\(\): $|internal error while walking|^[{,]|^%F"
                          r"|__vorl_|^api_version$|!= NULL$|tarnwickhdf$")
LITERAL = re.compile(r'"((?:[^"\\]|\\.)*)"')


def messages(source):
    code = re.sub(r"//.*", "", source)
    code = re.sub(r"#include.*", "", code)
    # Adjacent literals are one text.
    code = re.sub(r'"\s*\n\s*"', "", code)
    return [text for text in LITERAL.findall(code) if len(text) > 5 and not NOT_MESSAGES.search(text)]


page = re.sub(r"\s+", " ", Path("docs/errors.md").read_text())
units = [*Path("tarnwickhdf").glob("*.cpp"), *Path("tarnwickhdf/internal").glob("*.h")]
missing = [(unit.name, text) for unit in sorted(units)
           for text in messages(unit.read_text()) if text.strip() not in page]
for unit, text in missing:
    print(f'{unit}: "{text}" is not in docs/errors.md')
sys.exit(1 if missing else 0)
