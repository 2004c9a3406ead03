#!/usr/bin/env python3
"""Writes header_dates.tsv: for each message in a folder whose first Date
header is a well-formed RFC 5322 date (four-digit year, seconds, numeric
offset or GMT/UT) between 1970 and 3000, the UTC time it stands for, as
computed by Python's own email.utils. Run once; the output is kept as test
data.

    make_header_dates.py ../shared/corpus/mime > header_dates.tsv
"""
import datetime
import email.utils
import os
import re
import sys

WELL_FORMED = re.compile(
    rb'^(?:(?:Mon|Tue|Wed|Thu|Fri|Sat|Sun), )?\d{1,2} '
    rb'(?:Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) \d{4} '
    rb'\d\d:\d\d:\d\d (?:[+-]\d{4}|GMT|UT)(?: \([^()]*\))?$')


def first_date_header(data):
    """The first Date header of the header block, unfolded, leading blanks
    removed (the same rule the test uses)."""
    end = re.search(rb'\r?\n\r?\n', data)
    lines = re.split(rb'\r?\n', data[:end.start()] if end else data)
    for i, line in enumerate(lines):
        if line[:5].lower() == b'date:':
            value = line[5:]
            for more in lines[i + 1:]:
                if more[:1] not in (b' ', b'\t'):
                    break
                value += more
            return value.lstrip(b' \t')
    return None


def main(folder):
    for name in sorted(os.listdir(folder)):
        with open(os.path.join(folder, name), 'rb') as f:
            value = first_date_header(f.read())
        if value is None or not WELL_FORMED.match(value):
            continue
        parsed = email.utils.parsedate_tz(value.decode('ascii'))
        if parsed is None or parsed[9] is None:
            continue
        try:
            local = datetime.datetime(*parsed[:6])
        except ValueError:
            continue
        utc = local - datetime.timedelta(seconds=parsed[9])
        if not 1970 <= utc.year <= 3000:
            continue
        print(f'{name}\t{utc:%Y-%m-%dT%H:%M:%S}')


if __name__ == '__main__':
    main(sys.argv[1])
