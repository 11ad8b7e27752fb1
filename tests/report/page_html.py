"""The page as a browser reads it: elements closed in order, ids once, nothing from elsewhere."""
import pathlib
import re
import subprocess
import sys
import tempfile
from html.parser import HTMLParser

VOID = {"meta", "br", "path", "rect"}


class page(HTMLParser):
    def __init__(self):
        super().__init__()
        self.open, self.ids, self.links, self.faults, self.text = [], [], [], [], []
        self.count = {}

    def handle_starttag(self, tag, attributes):
        self.count[tag] = self.count.get(tag, 0) + 1
        for name, value in attributes:
            if name.startswith("on"):
                self.faults.append(f"attribute {name}")
            if name == "id":
                self.ids.append(value)
            if name in ("href", "src"):
                self.links.append(value)
        if tag not in VOID:
            self.open.append(tag)

    def handle_startendtag(self, tag, attributes):
        self.handle_starttag(tag, attributes)
        if tag not in VOID:
            self.open.pop()

    def handle_endtag(self, tag):
        if not self.open or self.open.pop() != tag:
            self.faults.append(f"</{tag}> at {self.getpos()}")

    def handle_data(self, data):
        self.text.append(data)


def check(program, kind, bpms):
    with tempfile.TemporaryDirectory() as place:
        subprocess.run([program, kind, str(bpms), "200", place], check=True,
                       stdout=subprocess.DEVNULL)
        text = (pathlib.Path(place) / "report.html").read_text(encoding="utf-8")
        png = (pathlib.Path(place) / "gains.png").read_bytes()
    read = page()
    read.feed(text)
    assert not read.faults and not read.open, (kind, read.faults, read.open)
    assert len(read.ids) == len(set(read.ids)), "an id stands twice"
    assert all(link.startswith("#") and link[1:] in read.ids for link in read.links), read.links
    assert "http:" not in text and "https:" not in text and "@import" not in text
    assert read.count["script"] == 1 and read.count["details"] == bpms + 1, read.count
    # Three pictures of all gains; up to five for each BPM.
    assert 3 + bpms <= read.count["svg"] <= 3 + 5 * bpms, read.count["svg"]
    assert "nan" not in " ".join(read.text).split() and "rgb(" not in text, "a colour or number"
    assert png[:4] == b"\x89PNG"


def check_paper(program):
    """Every sheet of the paper has its number at its foot, the last one too."""
    with tempfile.TemporaryDirectory() as place:
        subprocess.run([program, "bad", "100", "12", place], check=True, stdout=subprocess.DEVNULL)
        text = subprocess.run(["gs", "-q", "-dNOPAUSE", "-dBATCH", "-sDEVICE=txtwrite", "-o", "-",
                               f"{place}/gains.pdf"], check=True, capture_output=True).stdout.decode()
        sheets = int(subprocess.run(["gs", "-q", "-dNODISPLAY", f"--permit-file-read={place}/", "-c",
                                     f"({place}/gains.pdf) (r) file runpdfbegin pdfpagecount = quit"],
                                    check=True, capture_output=True).stdout)
    assert sheets > 1
    assert re.findall(r"page (\d+)", text) == [str(n) for n in range(1, sheets + 1)], text


for kind, bpms in (("good", 1), ("mixed", 24), ("bad", 6), ("quiet", 2)):
    check(sys.argv[1], kind, bpms)
check_paper(sys.argv[1])
