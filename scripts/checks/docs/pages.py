"""The project's Markdown pages, parsed as the forge does: CommonMark with tables and heading anchors."""
import re
import subprocess

from markdown_it import MarkdownIt
from mdit_py_plugins.anchors import anchors_plugin


def tracked_files():
    """Every file of the project, including new ones."""
    command = ["git", "ls-files", "--cached", "--others", "--exclude-standard"]
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout.splitlines()


class Block:
    """A fenced block: its place, language and text, and the comment right before it."""

    def __init__(self, page, token, before):
        self.page = page
        self.line = token.map[0] + 1
        self.language = token.info.strip()
        self.text = token.content
        comment = before is not None and before.type == "html_block" and re.fullmatch(
            r"<!-- (.*) -->\s*", before.content, re.DOTALL)
        self.note = comment.group(1) if comment else ""

    def place(self):
        return "%s:%d" % (self.page.path, self.line)


class Page:
    """One page with its blocks, anchors, links and code."""

    def __init__(self, path):
        self.path = path
        with open(path, encoding="utf-8") as file:
            self.tokens = (
                MarkdownIt("commonmark").enable("table").use(anchors_plugin, max_level=6).parse(file.read()))

    def blocks(self):
        before = [None] + self.tokens
        return [Block(self, token, before[i]) for i, token in enumerate(self.tokens) if token.type == "fence"]

    def anchors(self):
        return {token.attrs["id"] for token in self.tokens if token.type == "heading_open"}

    def headings(self):
        """Level and text of each heading, without marks."""
        for token, inline in zip(self.tokens, self.tokens[1:]):
            if token.type == "heading_open":
                yield int(token.tag[1:]), "".join(child.content for child in inline.children)

    def bold_codes(self):
        """For each paragraph that begins with bold code: the line, that code, and the other codes."""
        for token in self.tokens:
            children = [child for child in token.children or () if child.type != "text" or child.content]
            if [child.type for child in children[:2]] == ["strong_open", "code_inline"]:
                yield (token.map[0] + 1, children[1].content,
                       [child.content for child in children[2:] if child.type == "code_inline"])

    def _inline(self):
        for token in self.tokens:
            for child in token.children or ():
                yield token.map[0] + 1, child

    def targets(self):
        """The line and target of each link and picture."""
        for line, token in self._inline():
            target = token.attrs.get("href") or token.attrs.get("src")
            if target:
                yield line, target

    def codes(self):
        """The line and text of each piece of code, including blocks."""
        for line, token in self._inline():
            if token.type == "code_inline":
                yield line, token.content
        for token in self.tokens:
            if token.type in ("fence", "code_block"):
                yield token.map[0] + 1, token.content


def pages():
    return [Page(path) for path in tracked_files() if path.endswith(".md")]
