"""What the tests of the pages share: which pages there are, and what they show."""

import pathlib
import re

FENCE = re.compile(r"^(\s*)(```+)\s*([\w+-]*)\s*$")


def find_pages(root):
    """All Markdown files of the project, without those of build folders."""
    return sorted(path for path in root.rglob("*.md") if not {"build", ".git"} & set(path.relative_to(root).parts))


class Block:
    """A fenced block: its language, its lines, the number of its first line, and the line of text before it."""

    def __init__(self, page, language, number, before):
        self.page, self.language, self.number, self.before = page, language, number, before
        self.lines = []

    def place(self, root):
        return f"{self.page.relative_to(root)}:{self.number}"


def read_page(page):
    """The fenced blocks of a page, and its other lines with their numbers."""
    blocks, text, block, before = [], [], None, ""
    for number, line in enumerate(pathlib.Path(page).read_text(encoding="utf-8").splitlines(), 1):
        fence = FENCE.match(line)
        if block is not None:
            if fence and not fence[3]:
                blocks.append(block)
                block = None
            else:
                block.lines.append(line)
        elif fence:
            block = Block(page, fence[3], number + 1, before)
        else:
            text.append((number, line))
        before = line if line.strip() else before
    if block is not None:
        raise SystemExit(f"{page}: the block at line {block.number} has no end")
    return blocks, text
