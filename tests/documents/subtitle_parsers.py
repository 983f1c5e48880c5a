"""Reads an SRT and a WebVTT file with the parsers that players' tool chains
use (the `srt` and `webvtt-py` packages) and prints what each found as JSON:
cues as [start ms, end ms, text], and whether `srt` writes the SRT file back
byte for byte."""
import html
import json
import sys

import srt
import webvtt


def milliseconds(stamp):
    hours, minutes, seconds = stamp.split(":")
    return round((int(hours) * 3600 + int(minutes) * 60 + float(seconds)) * 1000)


def main(srt_path, vtt_path):
    with open(srt_path, encoding="utf-8") as file:
        srt_text = file.read()
    subtitles = list(srt.parse(srt_text))
    found = {
        "srt": [[round(s.start.total_seconds() * 1000), round(s.end.total_seconds() * 1000), s.content]
                for s in subtitles],
        "srtRoundTrip": srt.compose(subtitles, reindex=False) == srt_text,
        "vtt": [[milliseconds(c.start), milliseconds(c.end), html.unescape(c.raw_text)]
                for c in webvtt.read(vtt_path)],
    }
    json.dump(found, sys.stdout, ensure_ascii=False)


if __name__ == "__main__":
    main(sys.argv[1], sys.argv[2])
