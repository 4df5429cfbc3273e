"""The code of a written page, compiled and run, so that no page shows code that doesn't work.

    docs-pieces.py extract PAGE.md PROGRAM.cpp    makes one program of the page's ```cpp pieces
    docs-pieces.py run PAGE.md PROGRAM            runs the page's chapters in an empty folder and compares what they
                                                  print with the page's ```text pieces

The ```cpp pieces of a chapter (##) are one function, except for those that begin with #include: they stand at the top of
the program. ```python pieces are run too, before the chapter's C++ if they stand before it, else behind it. Pieces in
other languages are left alone.
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
    with open(page, encoding="utf-8") as lines:
        for number, line in enumerate(lines, 1):
            fence = re.match(r"```(\w*)", line)
            if fence and language is None:
                language, start, code = fence[1] or "none", number + 1, []
            elif fence:
                yield chapter, start, language, "".join(code)
                language = None
            elif language is not None:
                code.append(line)
            elif line.startswith("## "):
                chapter += 1


def is_head(code):
    return code.startswith("#include")


def extract(page, program):
    head, chapters = [], {}
    for chapter, line, language, code in pieces(page):
        if language == "cpp":
            target = head if is_head(code) else chapters.setdefault(chapter, [])
            target.append(f'#line {line} "{page}"\n{code}')
    with open(program, "w", encoding="utf-8") as out:
        out.write("".join(head))
        for chapter, code in chapters.items():
            out.write(f"\nstatic void Chapter{chapter}()\n{{\n{''.join(code)}}}\n")
        calls = "".join(f"    case {chapter}: Chapter{chapter}(); break;\n" for chapter in chapters)
        out.write(f"\nint main(int, char** chapter)\n{{\n    switch (std::stoi(chapter[1]))\n    {{\n{calls}    }}\n}}\n")


def run_python(code, page, line, names):
    printed = io.StringIO()
    with contextlib.redirect_stdout(printed):
        exec(compile("\n" * (line - 1) + code, page, "exec"), names)
    return printed.getvalue()


def run(page, program):
    page, program = os.path.abspath(page), os.path.abspath(program)
    everything = list(pieces(page))
    printed, done, names = "", set(), {}
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        for chapter, line, language, code in everything:
            if language == "python":
                printed += run_python(code, page, line, names)
            elif language == "cpp" and not is_head(code) and chapter not in done:
                done.add(chapter)
                ran = subprocess.run([program, str(chapter)], capture_output=True, text=True, check=False)
                printed += ran.stdout
                if ran.returncode != 0:
                    sys.exit(f"{page}: the chapter at line {line} failed:\n{ran.stdout}{ran.stderr}")
        os.chdir("/")
    expected = "".join(code for _, _, language, code in everything if language == "text")
    if printed != expected:
        difference = difflib.unified_diff(expected.splitlines(True), printed.splitlines(True), page, "printed")
        sys.exit(f"{page}: the pieces print something else:\n{''.join(difference)}")
    print(f"{page}: the pieces print what the page says")


{"extract": extract, "run": run}[sys.argv[1]](*sys.argv[2:])
