"""The code of a written page, compiled and run, so that no page shows code that doesn't work.

    docs-pieces.py extract PAGE.md PROGRAM.cpp    makes one program of the page's ```cpp pieces
    docs-pieces.py run PAGE.md PROGRAM            runs it and then the page's ```python pieces in an empty folder, and
                                                  compares what they print with the page's ```text and ```python-output pieces

A piece that begins with #include stands at the top of the program; the others are the body of one function for each
chapter (##), in the page's order. Pieces in other languages are left alone.
"""
import contextlib
import difflib
import io
import os
import re
import subprocess
import sys
import tempfile


def pieces(page):
    """Yields (chapter, line, language, code) for each piece of a page."""
    chapter, language = 0, None
    for number, line in enumerate(open(page, encoding="utf-8"), 1):
        fence = re.match(r"```([\w-]*)", line)
        if fence and language is None:
            language, start, code = fence[1] or "none", number + 1, []
        elif fence:
            yield chapter, start, language, "".join(code)
            language = None
        elif language is not None:
            code.append(line)
        elif line.startswith("## "):
            chapter += 1


def extract(page, program):
    head, chapters = [], {}
    for chapter, line, language, code in pieces(page):
        if language == "cpp":
            at_top = code.startswith("#include")
            target = head if at_top else chapters.setdefault(chapter, [])
            target.append(f'#line {line} "{page}"\n{code}')
    with open(program, "w", encoding="utf-8") as out:
        out.write("".join(head))
        for chapter, code in chapters.items():
            out.write(f"\nstatic void Chapter{chapter}()\n{{\n{''.join(code)}}}\n")
        calls = "".join(f"    Chapter{chapter}();\n" for chapter in chapters)
        out.write(f"\nint main()\n{{\n{calls}}}\n")


def run(page, program):
    program = os.path.abspath(program)
    all_pieces = list(pieces(page))
    with tempfile.TemporaryDirectory() as folder:
        done = subprocess.run([program], cwd=folder, capture_output=True, text=True, check=False)
        if done.returncode != 0:
            sys.exit(f"{page}: the pieces failed:\n{done.stdout}{done.stderr}")
        printed = io.StringIO()
        os.chdir(folder)
        names = {}
        for _, line, language, code in all_pieces:
            if language == "python":
                with contextlib.redirect_stdout(printed):
                    exec(compile("\n" * (line - 1) + code, page, "exec"), names)
        os.chdir("/")
    for what, got, languages in (("cpp", done.stdout, ["text"]), ("python", printed.getvalue(), ["python-output"])):
        expected = "".join(code for _, _, language, code in all_pieces if language in languages)
        if got != expected:
            difference = difflib.unified_diff(expected.splitlines(True), got.splitlines(True), page, "printed")
            sys.exit(f"{page}: the {what} pieces print something else:\n{''.join(difference)}")
    print(f"{page}: the pieces print what the page says")


{"extract": extract, "run": run}[sys.argv[1]](*sys.argv[2:])
