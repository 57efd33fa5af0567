"""What a question comes to: tables, written as Markdown and printed as text, and the panels of its plot."""

import dataclasses
import os
import pathlib
import statistics

from . import svg


@dataclasses.dataclass
class Spread:
    """Measurements of one thing."""

    middle: float
    low: float
    high: float

    def text(self, scale=1.0, digits=0):
        return f"{self.middle * scale:,.{digits}f}"

    def range(self, scale=1.0, digits=0):
        return f"{self.low * scale:,.{digits}f} to {self.high * scale:,.{digits}f}"

    def bar(self, label, scale=1.0, digits=0, shade=0):
        return svg.Bar(label, self.middle * scale, self.low * scale, self.high * scale, self.text(scale, digits), shade)


def spread(values):
    return Spread(statistics.median(values), min(values), max(values))


def ratios(these, those):
    """Of two measurements that were made in the same rounds."""
    return spread([a / b for a, b in zip(these, those, strict=True)])


@dataclasses.dataclass
class Table:
    columns: list
    rows: list  # of texts
    heading: str = ""

    def markdown(self):
        """The first column is text, the others are numbers."""
        align = ["---"] + ["---:"] * (len(self.columns) - 1)
        lines = [f"| {' | '.join(cells)} |" for cells in (self.columns, align, *self.rows)]
        return ([f"**{self.heading}**", ""] if self.heading else []) + lines

    def text(self):
        widths = [max(len(row[i]) for row in (self.columns, *self.rows)) for i in range(len(self.columns))]
        lines = [self.heading] if self.heading else []
        for row in (self.columns, *self.rows):
            cells = [row[0].ljust(widths[0])] + [cell.rjust(width) for cell, width in zip(row[1:], widths[1:])]
            lines.append("  ".join(cells).rstrip())
        return lines


@dataclasses.dataclass
class Answer:
    tables: list
    panels: list  # of svg.Bars and svg.Lines
    remarks: list = dataclasses.field(default_factory=list)  # sentences that only this run can say


def machine():
    """What was measured on."""
    model = [line.partition(":")[2].strip() for line in open("/proc/cpuinfo") if line.startswith("model name")]
    name = model[0] if model else os.uname().machine
    return f"{os.cpu_count()} processors ({name}), Linux {os.uname().release}"


def _lines(answer):
    lines = []
    for table in answer.tables:
        lines += [*table.markdown(), ""]
    for remark in answer.remarks:
        lines += [remark, ""]
    return lines


def write(folder, name, question, answer):
    """The question's table and plot as files of a folder."""
    folder = pathlib.Path(folder)
    folder.mkdir(parents=True, exist_ok=True)
    lines = [f"# {question.TITLE}", "", question.HOW, "", *_lines(answer)]
    lines += [f"![{question.TITLE}]({name}.svg)", "", f"Measured by `bench/run` on {machine()}."]
    (folder / f"{name}.md").write_text("\n".join(lines) + "\n")
    (folder / f"{name}.svg").write_text(svg.document(question.TITLE, answer.panels))


def show(question, answer):
    print(f"\n== {question.TITLE}\n")
    for table in answer.tables:
        print("\n".join(table.text()) + "\n")
    for remark in answer.remarks:
        print(remark)


def into_readme(path, name, question, answer):
    """Puts an answer between the marks that a README has for it."""
    path = pathlib.Path(path)
    begin, end = f"<!-- {name} -->\n", f"<!-- /{name} -->\n"
    head, found, rest = path.read_text().partition(begin)
    _, closed, tail = rest.partition(end)
    if not found or not closed:
        raise SystemExit(f"bench/run: {path} has no place for {name}: {begin.strip()} and {end.strip()} on lines of their own")
    lines = [*_lines(answer), f"![{question.TITLE}](results/{name}.svg)"]
    path.write_text(head + begin + "\n".join(lines) + "\n" + end + tail)
