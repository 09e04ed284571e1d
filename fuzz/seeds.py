#!/usr/bin/env python3
"""Writes the seed corpora of the fuzz targets into fuzz/corpus/NAME (deterministic).

Seeds are the project's own sample job and language files, the pattern cases of the tests, and
small archives of the kinds the zip tests make (stored, deflated, encrypted, folders, links,
unsafe names). Run from anywhere: python3 fuzz/seeds.py
"""
import io
import os
import pathlib
import stat
import zipfile

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent
OUT = HERE / "corpus"


def put(target, name, data):
    d = OUT / target
    d.mkdir(parents=True, exist_ok=True)
    (d / name).write_bytes(data if isinstance(data, bytes) else data.encode())


def profiles():
    samples = sorted((ROOT / "examples" / "jobs").glob("*.kjb"))
    samples.append(ROOT / "examples" / "lang" / "English.lng")
    for p in samples:
        for target in ("profile", "jobs"):
            put(target, p.name, p.read_bytes())
    extra = {
        "crlf.kjb": b"[Job]\r\nAction=1\r\nFrom=/a\r\nTo=/b\r\nStatus=0\r\n",
        "cp1252.kjb": b"[Job]\nName=Berichte \xfcber \x80\nFrom=/d\xe4ten\n",
        "bom.kjb": b"\xef\xbb\xbf[Job]\nName=\"quoted\"\nFileSize= 4.5 \n",
        "repeated.kjb": b"[job]\nAction=0\n[JOB]\nAction=2\n[Info]\nProgVersion=1\n",
        "nokey.kjb": b"[Job]\nAction\n=3\n; comment=1\n  Counter = 12 \nIntState=x",
        "numbers.kjb": b"[Job]\nAction=32768\nCounter=-2147483648\nZipGrade=6.5\nInterval=1e3\n",
    }
    for name, data in extra.items():
        for target in ("profile", "jobs"):
            put(target, name, data)


def patterns():
    # flag bits: 1 regular expression, 2 folder pattern, 4 the caller's expression switch
    cases = [
        (0, "report*", "report2024"), (0, "a?c", "abc"), (0, "a.b", "a.b"),
        (0, "x(1)[2]{3}", "x(1)[2]{3}"), (0, "^$", "^$"), (0, "a|b+c\\d", "b+c1"),
        (0, "", ""), (0, "*log*", "syslog"), (0, "report|invoice", "my invoice"),
        (1, "^a.*[0-9]$", "ab9"), (1, "^\\u00e4$", "\u00e4"), (1, "^(x)?\\1b$", "b"),
        (1, "a(", "a"), (1, "^a.b$", b"a\xffb"), (2, "temp*", "x/Temp1/y"),
        (2, "a\\b", "r/a/b"), (2, "a?.b", "ab.b"), (3, "^te", "data/tests"),
        (3, "(.*)*x", "ax"), (3, "x\\^y", "data/x^y"), (7, "^te(.*)*st", "/test/"),
        (0, "*", "line\nbreak"), (0, "-*", "-rf"),
    ]
    for i, (flags, pattern, name) in enumerate(cases):
        p = pattern.encode() if isinstance(pattern, str) else pattern
        n = name.encode() if isinstance(name, str) else name
        put("patterns", f"case{i:02d}", bytes([flags]) + p + b"\0" + n)


def archive(entries, **kw):
    buf = io.BytesIO()
    with zipfile.ZipFile(buf, "w", **kw) as z:
        for info, data in entries:
            z.writestr(info, data)
    return buf.getvalue()


def link(name, target):
    info = zipfile.ZipInfo(name, (2024, 1, 2, 3, 4, 6))
    info.create_system = 3
    info.external_attr = (stat.S_IFLNK | 0o777) << 16
    return info, target


def archives():
    t = (2024, 1, 2, 3, 4, 6)
    put("unzip", "stored.zip", archive([(zipfile.ZipInfo("a.txt", t), "alpha\n")]))
    put("unzip", "deflated.zip", archive(
        [(zipfile.ZipInfo("docs/", t), ""), (zipfile.ZipInfo("docs/b.txt", t), "beta " * 40),
         (zipfile.ZipInfo("c.csv", t), "1;2;3\n")], compression=zipfile.ZIP_DEFLATED))
    put("unzip", "unsafe.zip", archive(
        [(zipfile.ZipInfo("../escape.txt", t), "x"), (zipfile.ZipInfo("/abs.txt", t), "x"),
         (zipfile.ZipInfo("ok/../../up.txt", t), "x"), (zipfile.ZipInfo("fine.txt", t), "x")]))
    put("unzip", "links.zip", archive(
        [link("out", "../../.."), link("out2", "/etc"), (zipfile.ZipInfo("out/x.txt", t), "x"),
         link("in", "a.txt"), (zipfile.ZipInfo("a.txt", t), "a")]))
    put("unzip", "empty.zip", archive([]))
    put("unzip", "dupes.zip", archive(
        [(zipfile.ZipInfo("d.txt", t), "one"), (zipfile.ZipInfo("d.txt", t), "two"),
         (zipfile.ZipInfo("D.TXT", t), "three")]))
    # Traditional encryption, made by the zip tool when it is there (password "secret").
    src = OUT / "unzip" / ".tmp"
    src.mkdir(exist_ok=True)
    (src / "p.txt").write_text("private\n")
    target = OUT / "unzip" / "encrypted.zip"
    if os.system(f"cd '{src}' && zip -q -P secret '{target}' p.txt") != 0:
        print("zip tool missing: no encrypted seed")
    (src / "p.txt").unlink()
    src.rmdir()


if __name__ == "__main__":
    profiles()
    patterns()
    archives()
