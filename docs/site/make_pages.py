"""Turns the repository's Markdown into Doxygen's, and makes the site's navigation: make_pages.py <output folder>

Writes <folder>/pages/*.md, <folder>/html/images and <folder>/layout.xml, and fails on a link that leads nowhere in the
repository. GitHub and Doxygen differ in these points, which are all that is changed in a page:
  - Headings have no ids in Doxygen unless they are given. They get the page's name and GitHub's id: "kit_portsh".
  - Links go from file to file. They become links from page to page. A file that is no page becomes one, if it is linked.
  - Doxygen looks for images in folders that it is told. An image becomes plain HTML, and the file is copied.
  - A ' ends a piece of code between single backticks in Doxygen. Such a piece gets double ones.
  - Comments would be shown.
  - A list of a page's sections has to be asked for. The first page does without: the navigation has its sections.
"""

import os
import re
import shutil
import subprocess
import sys
from pathlib import Path
from xml.sax.saxutils import quoteattr

FENCE = re.compile(r" *(```|~~~)")
HEADING = re.compile(r"(#{1,6}) +(.*?) *#*$")
LINK = r"(?P<image>!?)\[(?P<text>(?:`[^`]*`|!\[[^\]]*\]\([^)]*\)|[^\[\]`])*)\]\((?P<target>[^()\s]+)\)"
CODE = r"(?P<ticks>`+)(?!`).*?(?<!`)(?P=ticks)(?!`)"
INLINE = re.compile(f"(?P<comment><!--.*?-->)|{LINK}|(?P<code>{CODE})", re.DOTALL)
IMAGES = {".svg", ".png", ".jpg"}
LANGUAGES = {".h": "cpp", ".cpp": "cpp", ".py": "py"}


def blocks(text):
    """The text in pieces: whether a piece is a block of code between fences, its first line, its text."""
    piece, start, fence = [], 1, None
    for number, line in enumerate(text.splitlines(keepends=True), 1):
        mark = FENCE.match(line)
        if mark and fence is None:
            yield False, start, "".join(piece)
            piece, start, fence = [line], number, mark[1]
        elif mark and fence == mark[1] and line.strip() == fence:
            yield True, start, "".join(piece) + line
            piece, start, fence = [], number + 1, None
        else:
            piece.append(line)
    yield fence is not None, start, "".join(piece)


def github_id(heading, taken):
    """GitHub's id for a heading: the second one of the same words gets "-1" at its end."""
    words = re.sub(LINK, lambda link: link["text"], heading)
    plain = re.sub(r"[^\w\- ]", "", words.lower()).replace(" ", "-")
    wanted, count = plain, 0
    while wanted in taken:
        count += 1
        wanted = f"{plain}-{count}"
    taken.append(wanted)
    return wanted


def heading_ids(text):
    taken = []
    for code, _, piece in blocks(text):
        for line in [] if code else piece.splitlines():
            heading = HEADING.match(line)
            if heading:
                github_id(heading[2], taken)
    return taken


def is_public_header(file):
    return file.endswith(".h") and "include/" in file


def header(file):
    """The page that Doxygen makes for a public header."""
    return "@ref " + file.split("include/", 1)[1]


class Site:
    def __init__(self, folder):
        self.folder = folder
        self.files = set(subprocess.check_output(
            ["git", "ls-files", "--cached", "--others", "--exclude-standard"], text=True).splitlines())
        self.folders = {str(parent) for file in self.files for parent in Path(file).parents}
        self.pages = {}  # each page's name, by its file
        self.waiting = []  # files whose page is not written yet
        self.broken = []

    def page(self, file):
        """The name of the page of a file, which is written later."""
        if file not in self.pages:
            top = Path(file).suffix == ".md" and str(Path(file).parent) in (".", "docs")
            name = Path(file).stem.lower() if top else "source_" + re.sub(r"\W", "_", file)
            self.pages[file] = "index" if name == "readme" else name
            self.waiting.append(file)
        return self.pages[file]

    def image(self, file):
        copy = self.folder / "html/images" / Path(file).name
        copy.parent.mkdir(parents=True, exist_ok=True)
        shutil.copyfile(file, copy)
        return f"images/{copy.name}"

    def find(self, page, target):
        """The file that a link of a page leads to, and the heading there."""
        path, _, heading = target.partition("#")
        file = os.path.normpath(Path(page).parent / path) if path else page
        if file not in self.files and file not in self.folders:
            raise ValueError(f'there is no "{path}"')
        if heading and Path(file).suffix == ".md" and heading not in heading_ids(Path(file).read_text()):
            raise ValueError(f'"{file}" has no heading "#{heading}"')
        return file, heading

    def address(self, page, target):
        """Where a link of a page leads in the site."""
        if re.match(r"[a-z]+:", target):
            return target
        file, heading = self.find(page, target)
        if Path(file).suffix in IMAGES:
            return self.image(file)
        if is_public_header(file):
            return header(file)
        name = self.page(file)
        if not heading or Path(file).suffix != ".md" or heading == heading_ids(Path(file).read_text())[0]:
            return f"{name}.html"
        return f"{name}.html#{name}_{heading}"

    def inline(self, page, text, first_line):
        def replace(found):
            kept = found[0]
            try:
                if found["code"]:
                    return f"`{kept}`" if found["ticks"] == "`" and "'" in kept else kept
                if found["comment"]:
                    return "\n" * kept.count("\n")
                target = self.address(page, found["target"])
                if found["image"]:
                    return f'@htmlonly<img src="{target}" alt={quoteattr(found["text"])}/>@endhtmlonly'
                return f"[{INLINE.sub(replace, found['text'])}]({target})"
            except ValueError as error:
                line = first_line + text.count("\n", 0, found.start())
                self.broken.append(f"{page}:{line}: {error}")
                return kept

        return INLINE.sub(replace, text)

    def markdown(self, file):
        """The page of a Markdown file, line by line where the file has it."""
        name, taken, result = self.pages[file], [], []
        for code, start, piece in blocks(Path(file).read_text()):
            if code:
                result.append(piece)
                continue
            for line in self.inline(file, piece, start).splitlines(keepends=True):
                heading = HEADING.match(line.rstrip("\n"))
                if heading:
                    is_title = not taken
                    label = github_id(heading[2], taken)
                    line = f"{heading[1]} {heading[2]} {{#{name if is_title else f'{name}_{label}'}}}\n"
                    if is_title:
                        line = f"{heading[0]}\n" if name == "index" else f"{line}[TOC]\n"
                result.append(line)
        return "".join(result)

    def source(self, file):
        """A page that shows a file, or lists what is in a folder."""
        title = f"# {file} {{#{self.pages[file]}}}\n\n"
        if Path(file).is_dir():
            inside = sorted(each for each in self.files | self.folders if str(Path(each).parent) == file)
            return title + "".join(f"- [{Path(each).name}]({header(each)})\n" if is_public_header(each)
                                   else f"- `{Path(each).name}{'/' * (each in self.folders)}`\n" for each in inside)
        language = LANGUAGES.get(Path(file).suffix, "txt")
        return f"{title}~~~~~~{{.{language}}}\n{Path(file).read_text()}~~~~~~\n"

    def write(self):
        pages = self.folder / "pages"
        pages.mkdir(parents=True)
        while self.waiting:
            file = self.waiting.pop()
            text = self.markdown(file) if Path(file).suffix == ".md" else self.source(file)
            (pages / f"{self.pages[file]}.md").write_text(text)


def navigation(site):
    """The groups of pages.txt with their pages and titles."""
    groups, listed = {}, {"README.md"}
    for line in (Path(__file__).parent / "pages.txt").read_text().splitlines():
        if line.startswith("#"):
            continue
        if not line.startswith(" "):
            group = groups.setdefault(line, [])
            continue
        file, title = line.split(maxsplit=1)
        if file not in site.files:
            site.broken.append(f'docs/site/pages.txt: there is no "{file}"')
            continue
        listed.add(file)
        group.append((file, title))
    for file in sorted(Path("docs").glob("*.md")):
        if str(file) not in listed:
            groups["Reference"].append((str(file), HEADING.match(file.read_text().splitlines()[0])[2]))
    return groups


def layout(site, groups):
    """Doxygen's own layout with our navigation."""
    tabs = ['<tab type="mainpage" title="sdk-core"/>']
    for group, pages in groups.items():
        tabs.append(f'<tab type="usergroup" url="[none]" title={quoteattr(group)}>')
        tabs += [f'<tab type="user" url="@ref {site.page(file)}" title={quoteattr(title)}/>' for file, title in pages]
        tabs.append("</tab>")
    api = """<tab type="usergroup" url="[none]" title="API">
             <tab type="classlist" title="Classes"/><tab type="hierarchy" title="Class hierarchy"/>
             <tab type="filelist" title="Headers"/><tab type="namespacelist" title="Namespaces"/>
             <tab type="classmembers" title="Members"/><tab type="globals" title="Macros"/></tab>"""
    default = site.folder / "layout.xml"
    subprocess.check_call(["doxygen", "-l", default])
    navindex = "<navindex>" + "\n".join([*tabs, api]) + "</navindex>"
    default.write_text(re.sub(r"<navindex>.*</navindex>", lambda _: navindex, default.read_text(), flags=re.DOTALL))


def main():
    site = Site(Path(sys.argv[1]))
    for file in site.files:
        if file.endswith(".md"):
            site.page(file)
    layout(site, navigation(site))
    site.write()
    if site.broken:
        sys.exit("\n".join([*sorted(site.broken), "docs: links that lead nowhere"]))


main()
