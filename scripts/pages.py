#!/usr/bin/env python3
"""What keeps the written pages true.

    pages.py extract PAGE.md PROGRAM.cpp   makes one program of the page's ```cpp pieces
    pages.py run PAGE.md PROGRAM           runs the page's chapters in an empty folder and compares what they print with
                                           the page's ```text pieces
    pages.py links [FOLDER]                fails if a page of the project, or below a folder, links to a file or to a
                                           heading that isn't there
    pages.py errors                        fails if docs/errors.md lacks a message of the library
    pages.py for-doxygen PAGE.md           prints a page with its headings and links as Doxygen wants them

The ```cpp pieces of a chapter (##) are one function, except for those that begin with #include: they stand at the top
of the program, and one that has a main() of its own is called as a chapter. ```cmake, ```python and other pieces: Python is run too, before the chapter's C++ if it stands before
it, else behind it; the rest is left alone.
"""
import contextlib
import difflib
import io
import os
import re
import subprocess
import sys
import tempfile
from pathlib import Path


# The code of a page.

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


MAIN = "int main()"


def is_run(code):
    return not is_head(code) or MAIN in code


def extract(page, program):
    head, chapters = [], {}
    for chapter, line, language, code in pieces(page):
        if language != "cpp":
            continue
        if is_head(code) and MAIN in code:
            code = code.replace(MAIN, f"static void Main{chapter}()")
            chapters.setdefault(chapter, []).append(f"Main{chapter}();\n")
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


def run_chapters(page, program):
    """What the page's pieces print, one after the other."""
    printed, done, names = "", set(), {}
    for chapter, line, language, code in pieces(page):
        if language == "python":
            printed += run_python(code, page, line, names)
        elif language == "cpp" and is_run(code) and chapter not in done:
            done.add(chapter)
            ran = subprocess.run([program, str(chapter)], capture_output=True, text=True, check=False)
            printed += ran.stdout
            if ran.returncode != 0:
                sys.exit(f"{page}: the chapter at line {line} failed:\n{ran.stdout}{ran.stderr}")
    return printed


def run(page, program):
    page, program = os.path.abspath(page), os.path.abspath(program)
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        printed = run_chapters(page, program)
        os.chdir("/")
    expected = "".join(code for _, _, language, code in pieces(page) if language == "text")
    if printed != expected:
        difference = difflib.unified_diff(expected.splitlines(True), printed.splitlines(True), page, "printed")
        sys.exit(f"{page}: the pieces print something else:\n{''.join(difference)}")
    print(f"{page}: the pieces print what the page says")


# Links.

HEADING = re.compile(r"^(#+) +(.+)$", re.M)


def without_code(text):
    return re.sub(r"^```.*?^```", "", text, flags=re.M | re.S)


def anchor_of(heading):
    """The anchor that hosting sites give to a heading."""
    return re.sub(r"[^\w\- ]", "", heading).strip().lower().replace(" ", "-")


def anchors(text):
    return {anchor_of(heading) for _, heading in HEADING.findall(without_code(text))}


def project_pages():
    names = subprocess.run(["git", "ls-files", "--cached", "--others", "--exclude-standard", "*.md"],
                           check=True, capture_output=True, text=True).stdout.split()
    return map(Path, names)


def links(folder=None):
    broken = 0
    for page in Path(folder).rglob("*.md") if folder else project_pages():
        for target in re.findall(r"\]\(([^)\s]+)\)", page.read_text()):
            name, _, anchor = target.partition("#")
            file = page.parent / name if name else page
            if target.startswith("http"):
                continue
            if not file.exists() or (anchor and anchor not in anchors(file.read_text())):
                print(f"{page}: broken link: {target}", file=sys.stderr)
                broken += 1
    sys.exit(broken > 0)


# Messages.

# Texts that no exception carries: the status print, the traceback's own frames and marks.
NOT_MESSAGES = re.compile(r"\\t|Cache statistics|^#|: in func |\\n  m|^\(\): $|internal error while walking|^[{,]|^%F"
                          r"|__vorl_|^api_version$|!= NULL$|tarnwickhdf$")
LITERAL = re.compile(r'"((?:[^"\\]|\\.)*)"')


def messages(source):
    code = re.sub(r"//.*", "", source)
    code = re.sub(r"#include.*", "", code)
    code = re.sub(r'\["\w+"\]', "", code)  # Keys of the memory log.
    # Adjacent literals are one text.
    code = re.sub(r'"\s*\n\s*"', "", code)
    return [text for text in LITERAL.findall(code) if len(text) > 5 and not NOT_MESSAGES.search(text)]


def errors():
    page = re.sub(r"\s+", " ", Path("docs/errors.md").read_text())
    units = [*Path("tarnwickhdf").glob("*.cpp"), *Path("tarnwickhdf/internal").glob("*.h")]
    missing = [(unit.name, text) for unit in sorted(units)
               for text in messages(unit.read_text()) if text.strip() not in page]
    for unit, text in missing:
        print(f'{unit}: "{text}" is not in docs/errors.md')
    sys.exit(1 if missing else 0)


# Doxygen knows a heading only by a label, which must differ from those of all other pages, and ends a code span at an
# apostrophe, unless the span has two backticks.

CODE_WITH_APOSTROPHE = re.compile(r"(?<!`)`([^`\n]*'[^`\n]*)`(?!`)")


def for_doxygen(page):
    def labelled(heading):
        marks, text = heading.groups()
        label = f"{stem}-{anchor_of(text)}"
        if len(marks) == 1 or label in labels:
            return heading[0]
        labels.add(label)
        return f"{marks} {text} {{#{label}}}"

    def linked(link):
        target = Path(link[1]).stem if link[1] else stem
        return f"](#{target}-{link[2]})"

    stem, labels = Path(page).stem, set()
    parts = re.split(r"(^```.*?^```)", Path(page).read_text(), flags=re.M | re.S)
    for i, part in enumerate(parts[::2]):
        part = re.sub(r"\]\(([^)#\s]*)#([^)\s]+)\)", linked, HEADING.sub(labelled, part))
        parts[2 * i] = CODE_WITH_APOSTROPHE.sub(r"``\1``", part)
    print("".join(parts), end="")


COMMANDS = {"extract": extract, "run": run, "links": links, "errors": errors, "for-doxygen": for_doxygen}

if __name__ == "__main__":
    if len(sys.argv) < 2 or sys.argv[1] not in COMMANDS:
        print(__doc__)
        sys.exit(0 if sys.argv[1:] == ["--help"] else 2)
    COMMANDS[sys.argv[1]](*sys.argv[2:])
