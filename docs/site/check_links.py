#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Every link from one page of the site to another leads somewhere:  check_links.py SITE"""

import html.parser
import pathlib
import sys
import urllib.parse


class Links(html.parser.HTMLParser):
    def __init__(self, text):
        super().__init__()
        self.found = set()
        self.feed(text)

    def handle_starttag(self, tag, attrs):
        self.found |= {value for name, value in attrs if name in ("href", "src") and value}


def main():
    broken = []
    for page in sorted(pathlib.Path(sys.argv[1]).rglob("*.html")):
        for link in sorted(Links(page.read_text()).found):
            parts = urllib.parse.urlsplit(link)
            if not parts.scheme and parts.path and not (page.parent / parts.path).exists():
                broken.append(f"{page}: no {link}")
    for line in broken:
        print(line, file=sys.stderr)
    return 1 if broken else 0


if __name__ == "__main__":
    sys.exit(main())
