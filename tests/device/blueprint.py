"""Reads as much of Android.bp's language as the project uses: modules of strings, booleans and lists."""

import re

TOKEN = re.compile(r'\s+|//.*|"(?P<text>[^"\\]*)"|(?P<word>\w+)|(?P<sign>[{}\[\]:,])')


def tokens(source):
    at = 0
    while at < len(source):
        match = TOKEN.match(source, at)
        if not match:
            raise ValueError(f"Android.bp:{source.count(chr(10), 0, at) + 1}: not understood")
        at = match.end()
        if match.lastgroup:
            yield match.lastgroup, match[match.lastgroup]


class Reader:
    def __init__(self, source):
        self.rest = list(tokens(source))

    def take(self, kind, wanted=None):
        found, value = self.rest.pop(0)
        if found != kind or wanted not in (None, value):
            raise ValueError(f"Android.bp: {wanted or kind} expected before {value!r}")
        return value

    def until(self, closing, read):
        """What `read` takes, again and again, with commas between; a last comma is allowed."""
        values = []
        while self.rest[0] != ("sign", closing):
            values.append(read())
            if self.rest[0] != ("sign", closing):
                self.take("sign", ",")
        self.take("sign", closing)
        return values

    def value(self):
        kind, value = self.rest.pop(0)
        if value == "[" and kind == "sign":
            return self.until("]", lambda: self.take("text"))
        if kind == "word":
            return {"true": True, "false": False}[value]
        return value

    def property(self):
        name = self.take("word")
        self.take("sign", ":")
        return name, self.value()

    def module(self):
        kind = self.take("word")
        self.take("sign", "{")
        return {"kind": kind, **dict(self.until("}", self.property))}


def add(module, defaults):
    """Lists are joined, everything else is the module's own where it has one."""
    joined = {**defaults, **module}
    for name, value in defaults.items():
        if isinstance(value, list) and name in module:
            joined[name] = value + module[name]
    return joined


def read_modules(source):
    """Name to properties, the defaults worked in."""
    reader = Reader(source)
    modules = {}
    while reader.rest:
        module = reader.module()
        for name in module.pop("defaults", []):
            module = add(module, {k: v for k, v in modules[name].items() if k not in ("kind", "name")})
        modules[module["name"]] = module
    return modules
