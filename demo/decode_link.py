#!/usr/bin/env python3
"""Tells in plain words which video the link of a mail asks the web client for.

Exit status 1: the mail has no such link.
"""
import argparse
import base64
import binascii
import dataclasses
import json
import pathlib
import re
import sys
import time
import urllib.parse

import cameras

# Standard alphabet, so the text behind "#" ends at the first other character.
LINK = re.compile(rb"http://(?P<server>[^/\s]+)/advanced\.web\?s=(?P<id>[^;\s]*);#"
                  rb"(?P<search>[A-Za-z0-9+/]+=*)")


class NoLink(Exception):
    """The mail has no link, or one that no web client could follow."""


@dataclasses.dataclass(frozen=True)
class Link:
    text: bytes      # as it stands in the mail
    server: str
    server_id: str
    cameras: tuple   # identifiers of the sources
    start: int       # seconds since 1970
    end: int
    newer: bool      # of the two forms of a search


def find_link(content):
    """The first link of a mail, decoded."""
    found = LINK.search(content)
    if not found:
        raise NoLink("no link into the web client")
    try:
        search = json.loads(base64.b64decode(found["search"], validate=True))
        newer = "items" in search
        if newer:
            asked = [it["p"] << 16 | it["s"] << 8 | it["i"] for it in search["items"]]
            start, end = search["st"], search["et"]
        else:
            asked = search["searchCameraIds"]
            start, end = search["searchStart"], search["searchEnd"]
        return Link(found[0], found["server"].decode(), urllib.parse.unquote(found["id"].decode()),
                    tuple(asked), start // 1000, end // 1000, newer)
    except (binascii.Error, ValueError, KeyError, TypeError) as fault:
        raise NoLink(f"the link cannot be decoded: {fault!r}") from fault


def name_of(identifier):
    names = {it.stream: it.name for it in cameras.CAMERAS}
    return f"{names.get(str(identifier), 'a camera unknown to the demo')} ({identifier})"


def moment(seconds):
    return time.strftime("%Y-%m-%d %H:%M:%S", time.localtime(seconds))


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("mail", type=pathlib.Path)
    arguments = parser.parse_args()
    try:
        link = find_link(arguments.mail.read_bytes())
    except NoLink as fault:
        sys.exit(f"{arguments.mail}: {fault}")
    print(f"The link leads to the web client at {link.server}, which knows this system as "
          f"{link.server_id!r},\nand asks in the {'newer' if link.newer else 'older'} form for the "
          f"video\n"
          f"    of    {', '.join(map(name_of, link.cameras))}\n"
          f"    from  {moment(link.start)}\n"
          f"    to    {moment(link.end)} ({link.end - link.start} seconds)")


if __name__ == "__main__":
    main()
