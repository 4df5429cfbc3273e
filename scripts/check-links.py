"""Fails if a page links to a file that isn't there, or to a heading that isn't in that file. It looks at the project's
pages, or at those below the folder that is given."""
import pathlib
import re
import subprocess
import sys


def anchors(text):
    """The anchors that hosting sites and Doxygen give to the headings of a page."""
    headings = re.findall(r"^#+ +(.+)$", re.sub(r"^```.*?^```", "", text, flags=re.M | re.S), re.M)
    return {re.sub(r"[^\w\- ]", "", heading).strip().lower().replace(" ", "-") for heading in headings}


if len(sys.argv) > 1:
    pages = list(pathlib.Path(sys.argv[1]).rglob("*.md"))
else:
    listed = subprocess.run(["git", "ls-files", "--cached", "--others", "--exclude-standard", "*.md"],
                            check=True, capture_output=True, text=True)
    pages = [pathlib.Path(page) for page in listed.stdout.split()]
broken = 0
for page in pages:
    for target in re.findall(r"\]\(([^)\s]+)\)", page.read_text()):
        if target.startswith("http"):
            continue
        name, _, anchor = target.partition("#")
        file = page.parent / name if name else page
        if not file.exists() or (anchor and anchor not in anchors(file.read_text())):
            print(f"{page}: broken link: {target}", file=sys.stderr)
            broken += 1
sys.exit(broken > 0)
