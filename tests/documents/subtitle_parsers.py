"""Reads an SRT and a WebVTT file with the `srt` and `webvtt-py` packages and
prints the cues each found as JSON [start ms, end ms, text], and whether `srt`
writes the SRT file back byte for byte."""
import html, json, sys

import srt, webvtt


def milliseconds(stamp):
    hours, minutes, seconds = stamp.split(":")
    return round((int(hours) * 3600 + int(minutes) * 60 + float(seconds)) * 1000)


with open(sys.argv[1], encoding="utf-8") as file:
    srt_text = file.read()
subtitles = list(srt.parse(srt_text))
json.dump({"srt": [[round(s.start.total_seconds() * 1000), round(s.end.total_seconds() * 1000), s.content]
                   for s in subtitles],
           "srtRoundTrip": srt.compose(subtitles, reindex=False) == srt_text,
           "vtt": [[milliseconds(c.start), milliseconds(c.end), html.unescape(c.raw_text)]
                   for c in webvtt.read(sys.argv[2])]},
          sys.stdout, ensure_ascii=False)
