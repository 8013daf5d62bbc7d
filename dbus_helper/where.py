#!/usr/bin/python3
"""`where`: names the statements that log a line, and the operation that the line names.

It reads the sources as they stand: every call of Log::Info, Log::Debug and Log::Error with its format, the texts that
reach it through constants and parameters, and which function calls which. It knows neither folders nor helpers by name.
"""

import bisect
import collections
import functools
import pathlib
import re
import sys
from dataclasses import dataclass, field

_ROOT = pathlib.Path(__file__).resolve().parent.parent

#: Folders beside the sources of what is shipped.
_OTHERS = ("build", "tests", "benchmarks", "virtual_unit")

#: How many callers up a text is followed, and how many callees down an operation is.
_CALLERS, _CALLEES = 4, 4
_NEVER = float("inf")

_TOKEN = re.compile(r"""
    (?P<skip>\s+ | //[^\n]* | /\*.*?\*/ | \#(?:\\\n|[^\n])*)
  | R"(?P<fence>[^(]*)\((?P<raw>.*?)\)(?P=fence)"
  | "(?P<text>(?:\\.|[^"\\])*)"
  | '(?:\\.|[^'\\])+'
  | (?P<name>[A-Za-z_]\w*)
  | \d(?:[\w.']|[eE][+-])*
  | :: | -> | .""", re.VERBOSE | re.DOTALL)
_ESCAPES = {"n": "\n", "t": "\t", "0": "\0"}
#: What makes the signature text of an operation, out of itself or of its name: Signature.h.
_SIGNATURES = ("signatureOf", "propertySignatureOf", "signature")
_CONVERSION = re.compile(r"%(?P<flags>[-+ #0]*[\d.]*)(?:hh|ll|[hljzt])?(?P<kind>[a-zA-Z%])")
_INTEGER, _REAL = r"-?\d+", r"-?(?:\d+\.?\d*|inf|nan)"
_VALUES = {"d": _INTEGER, "i": _INTEGER, "u": _INTEGER, "f": _REAL, "g": _REAL, "x": r"[\da-fA-F]+", "c": "."}
_OPENING, _CLOSING = {"(": ")", "{": "}", "[": "]"}, set(")}]")

#: What stands before the text of a line in a journal, in a file of syslog, and in what a virtual unit shows.
_PREFIX = re.compile(r"""
    (?:<\d+>)?
    (?:(?:[^\n]*?\s)?(?:[\w./-]+\[\d+\]|controllerd):\s)?  # Nov 21 22:01:02 unit controllerd[123]:
    (?:\s*(?:emerg|alert|crit|err|warning|notice|info|debug)\s)?""", re.VERBOSE)
_MENTION = re.compile(r"(?:\w+::)+~?\w+")


@dataclass(frozen=True)
class Token:
    """A piece of a source. `kind` is "name", "text" for a string literal, or "" for all others."""
    kind: str
    text: str
    line: int


@dataclass(eq=False)
class Definition:
    """A function or a variable with an initialiser; the parameters of a variable are None."""
    scope: tuple  # namespaces and classes around it, "" for a namespace without a name
    name: str
    source: "Source"
    line: int
    parameters: list
    body: list
    locals: dict = field(default_factory=dict)  # variables of one value: its tokens

    @property
    def title(self):
        """The name with that of its class, or else of its namespace."""
        return "::".join([*[part for part in self.scope if part][-1:], self.name])


@dataclass(eq=False)
class Source:
    """A file, as far as it matters here."""
    path: str
    aliases: dict = field(default_factory=dict)
    literals: set = field(default_factory=set)
    definitions: list = field(default_factory=list)


@dataclass(frozen=True)
class Parameter:
    """A text that the callers give."""
    name: str


@dataclass(frozen=True)
class Field:
    """A text of a table."""
    name: str


@dataclass(frozen=True)
class Place:
    """A line of a source, within a definition."""
    definition: Definition
    line: int

    def __str__(self):
        return f"{self.definition.source.path}:{self.line}"


@dataclass
class Pattern:
    """What a statement logs. `places` has the statement, then the calls that bring its texts, the outermost last."""
    places: tuple
    pieces: list  # texts, regular expressions of values as a tuple of one, Parameter, Field, None for any text
    format: str

    def __post_init__(self):
        """A line is looked for without what is blank at its ends."""
        self.pieces = [self.pieces[0].lstrip(), *self.pieces[1:]]
        self.pieces[-1] = self.pieces[-1].rstrip()

    @functools.cached_property
    def words(self):
        """The texts of the pattern."""
        return [piece for piece in self.pieces if isinstance(piece, str)]

    @functools.cached_property
    def expression(self):
        """Matches a line; each piece that is no text is a group."""
        return re.compile("".join(
            re.escape(piece) if isinstance(piece, str) else f"({piece[0] if isinstance(piece, tuple) else '.*?'})"
            for piece in self.pieces), re.DOTALL)


@dataclass
class Match:
    """A statement that can make a line, and how well: more characters are better, then fewer steps."""
    places: tuple
    format: str
    characters: float
    steps: float

    @property
    def rank(self):
        """Sorts the best first."""
        return (-self.characters, self.steps)


# Reading --------------------------------------------------------------------------------------------------------------


def _unescape(text):
    return re.sub(r"\\(.)", lambda match: _ESCAPES.get(match.group(1), match.group(1)), text, flags=re.DOTALL)


def _tokens(text):
    starts = [0, *(match.end() for match in re.finditer("\n", text))]
    found = []
    for match in _TOKEN.finditer(text):
        line = bisect.bisect_right(starts, match.start())
        if match.lastgroup == "skip":
            continue
        if match["raw"] is not None or match["text"] is not None:
            piece = match["raw"] if match["raw"] is not None else _unescape(match["text"])
            found.append(Token("text", piece, line))
        else:
            found.append(Token("name" if match["name"] else "", match.group(), line))
    return found


def _is(token, *texts):
    return token.kind != "text" and token.text in texts


def _end(tokens, start):
    """The index of what closes the bracket at `start`."""
    depth = 0
    for index in range(start, len(tokens)):
        if _is(tokens[index], *_OPENING):
            depth += 1
        elif _is(tokens[index], *_CLOSING):
            depth -= 1
            if depth == 0:
                return index
    return len(tokens)


def _angle_end(tokens, start):
    """The index of the ">" of template arguments that "<" at `start` opens; None when it is a comparison."""
    depth, index = 0, start
    while index < len(tokens):
        token = tokens[index]
        if _is(token, "<"):
            depth += 1
        elif _is(token, ">"):
            depth -= 1
            if depth == 0:
                return index
        elif _is(token, "("):
            index = _end(tokens, index)
        elif _is(token, ";", "{", "}", ")", "?", "="):
            return None
        index += 1
    return None


def _top(tokens):
    """The indices of the tokens that stand in no bracket and no template arguments; of brackets, the opening one."""
    index = 0
    while index < len(tokens):
        yield index
        if _is(tokens[index], *_OPENING):
            index = _end(tokens, index)
        elif _is(tokens[index], "<"):
            index = _angle_end(tokens, index) or index
        index += 1


def _split(tokens):
    """The parts between commas."""
    parts, start = [], 0
    for index in _top(tokens):
        if _is(tokens[index], ","):
            parts.append(tokens[start:index])
            start = index + 1
    return [*parts, tokens[start:]] if tokens else []


def _without_prelude(tokens):
    """A declaration without what may stand before it: access, attributes, template parameters."""
    while len(tokens) > 1:
        if _is(tokens[0], "public", "protected", "private") and _is(tokens[1], ":"):
            tokens = tokens[2:]
        elif _is(tokens[0], "[") and _is(tokens[1], "["):
            tokens = tokens[_end(tokens, 0) + 1:]
        elif _is(tokens[0], "template") and _is(tokens[1], "<"):
            depth = 0
            for index, token in enumerate(tokens):
                depth += _is(token, "<") - _is(token, ">")
                if index and depth == 0 and _is(token, ">"):
                    break
            tokens = tokens[index + 1:]
        else:
            break
    return tokens


def _qualified_before(tokens, end):
    """The parts of the qualified name that ends before the index, without template arguments."""
    parts, index = [], end - 1
    while index >= 0 and tokens[index].kind == "name":
        parts.insert(0, tokens[index].text)
        if not index or not _is(tokens[index - 1], "::"):
            break
        index -= 2
    return parts


def _parameters_at(declaration):
    """The index of the "(" of a function's parameters; None when no function is declared."""
    for index in _top(declaration):
        token = declaration[index]
        if _is(token, "operator"):
            return next((at for at in range(index, len(declaration)) if _is(declaration[at], "(")), None)
        if _is(token, "="):
            return None
        if _is(token, "(") and index and not _is(declaration[index - 1], "decltype", "alignas", "requires"):
            return index
    return None


class Reader:
    """Finds the definitions of one source."""

    def __init__(self, path, text):
        self.source = Source(path)
        self.bases = {}
        self._tokens = _tokens(text)
        self.source.literals.update(token.text for token in self._tokens if token.kind == "text")
        self._scan(0, len(self._tokens), ())

    def _scan(self, index, end, scope):
        start = index
        while index < end:
            token = self._tokens[index]
            if _is(token, "{"):
                index, ended = self._brace(start, index, scope)
                start = index + 1 if ended else start
            elif _is(token, "(", "["):
                index = _end(self._tokens, index)
            elif _is(token, ";"):
                self._variable(_without_prelude(self._tokens[start:index]), scope)
                start = index + 1
            index += 1

    def _brace(self, start, index, scope):
        """Reads what opens at the index. Returns the index of its end, and whether the declaration ends with it."""
        declaration = _without_prelude(self._tokens[start:index])
        end = _end(self._tokens, index)
        words = {token.text for token in declaration if token.kind == "name"}
        at = _parameters_at(declaration)
        if declaration and _is(declaration[0], "namespace", "extern", "inline") and words & {"namespace", "extern"} \
                and at is None:
            names = [token.text for token in declaration[1:] if token.kind == "name" and token.text != "namespace"]
            self._scan(index + 1, end, (*scope, *(names or [""])))
            return end, True
        if declaration and _is(declaration[0], "class", "struct", "union"):
            names = [token.text for token in declaration[1:] if token.kind == "name" and token.text != "final"]
            self.bases[names[0] if names else ""] = names[1:]
            self._scan(index + 1, end, (*scope, names[0] if names else ""))
            return end, True
        if at is None:
            return end, False
        closed = _end(declaration, at)
        initialising = any(_is(token, ":") for token in declaration[closed:])
        if initialising and self._tokens[index - 1].kind == "name":
            return end, False
        self._function(declaration, at, self._tokens[index + 1:end], scope)
        return end, True

    def _function(self, declaration, at, body, scope):
        names = _qualified_before(declaration, at) or [""]
        qualifiers = [self.source.aliases.get(name, name) for name in names[:-1]]
        parameters = _split(declaration[at + 1:_end(declaration, at)])
        line = declaration[at - 1].line
        found = Definition((*scope, *qualifiers), names[-1], self.source, line, parameters, body)
        assigned = collections.defaultdict(list)
        for index in range(1, len(body) - 1):
            if body[index].kind == "name" and _is(body[index + 1], "=") and not _is(body[index - 1], ".", "->"):
                stop = next((i for i in range(index, len(body)) if _is(body[i], ";", "{")), len(body))
                assigned[body[index].text].append(body[index + 2:stop])
        found.locals = {name: values[0] for name, values in assigned.items() if len(values) == 1}
        self.source.definitions.append(found)

    def _variable(self, declaration, scope):
        if declaration and _is(declaration[0], "using"):
            if len(declaration) > 3 and _is(declaration[2], "=") and declaration[-1].kind == "name":
                self.source.aliases[declaration[1].text] = declaration[-1].text
            return
        ends = [index for index in _top(declaration) if _is(declaration[index], "=", "{", "[")]
        start = next((index for index in ends if not _is(declaration[index], "[")), None)
        if start and declaration[ends[0] - 1].kind == "name":
            name = declaration[ends[0] - 1]
            self.source.definitions.append(
                Definition(scope, name.text, self.source, name.line, None, declaration[start:]))


# Knowing --------------------------------------------------------------------------------------------------------------


class Sources:
    """All sources below a folder."""

    def __init__(self, root=_ROOT):
        self._sources, self._bases, self._fields = {}, {}, collections.defaultdict(set)
        self._named, self._calls = collections.defaultdict(list), collections.defaultdict(list)
        for path in sorted(root.glob("*/**/*")):
            relative = path.relative_to(root)
            if path.suffix in (".cpp", ".h") and not relative.parts[0].startswith((".", *_OTHERS)):
                reader = Reader(relative.as_posix(), path.read_text("utf-8"))
                self._sources[reader.source.path] = reader.source
                self._bases.update(reader.bases)
        for source in self._sources.values():
            for definition in source.definitions:
                self._named[definition.name].append(definition)
                self._note(definition)
        self.patterns = [pattern for source in self._sources.values() for definition in source.definitions
                         if definition.parameters is not None for pattern in self._logged(definition)]

    def _note(self, definition):
        """Notes the calls in a definition, and the texts that it gives to fields by name."""
        body = definition.body
        for index, token in enumerate(body[:-1]):
            if token.kind != "name":
                continue
            after = index + 1
            if _is(body[after], "<"):
                after = (_angle_end(body, after) or index) + 1
            if after < len(body) and _is(body[after], "("):
                self._calls[token.text].append((definition, index, after))
            if _is(body[index - 1], ".") and _is(body[index + 1], "=") and body[index + 2].kind == "text":
                self._fields[token.text].add(body[index + 2].text)

    # Names --------------------------------------------------------------------

    def _meant(self, definition, index):
        """The definitions that a name in a definition's body can mean: the nearest of its source, namespace, or all."""
        source = definition.source
        candidates = self._named.get(definition.body[index].text, ())
        qualifiers = _qualified_before(definition.body, index + 1)[:-1] if candidates else ()
        if qualifiers:
            last = source.aliases.get(qualifiers[-1], qualifiers[-1])
            candidates = [each for each in candidates if last in each.scope]
        seen = [each for each in candidates if "" not in each.scope or each.source is source]
        return [each for each in seen if each.source is source] or \
            [each for each in seen if each.scope[:1] == definition.scope[:1]] or seen

    @functools.lru_cache(maxsize=None)
    def _callees(self, definition):
        return {meant: None for index, token in enumerate(definition.body) if token.kind == "name"
                for meant in self._meant(definition, index)}

    @functools.lru_cache(maxsize=None)
    def _steps(self, operations):
        """How many calls each definition is away from the operations."""
        steps, edge = dict.fromkeys(operations, 0), list(operations)
        for distance in range(1, _CALLEES + 1):
            edge = [callee for each in edge for callee in self._callees(each)]
            edge = [each for each in dict.fromkeys(edge) if each not in steps]
            steps.update(dict.fromkeys(edge, distance))
        return steps

    # Texts --------------------------------------------------------------------

    def _values(self, tokens, definition, depth=0):
        """The texts that an expression can be: strings, Parameter, Field, or None for any."""
        question = next((index for index in _top(tokens) if _is(tokens[index], "?")), None)
        if question is not None:
            parts = tokens[question + 1:]
            colon = next((index for index in _top(parts) if _is(parts[index], ":")), len(parts))
            return [value for part in (parts[:colon], parts[colon + 1:])
                    for value in self._values(part, definition, depth)]
        if tokens and all(token.kind == "text" for token in tokens):
            return ["".join(token.text for token in tokens)]
        if any(_is(token, *_SIGNATURES) and _is(behind, "<") for token, behind in zip(tokens[:3], tokens[1:])):
            named = [token.text for token in tokens if token.kind == "name" and not _is(token, *_SIGNATURES)]
            written = [token.text for token in tokens if token.kind == "text"]
            operation = named[-1] if any(_is(token, *_SIGNATURES[:2]) for token in tokens) else "".join(written)
            return [(rf".*?\b{re.escape(operation)}\(.*?\)",)] if operation else [None]
        if len(tokens) > 1 and tokens[-1].kind == "name" and _is(tokens[-2], "."):
            return [Field(tokens[-1].text)]
        if not tokens or depth > _CALLERS or any(token.kind != "name" and token.text != "::" for token in tokens):
            return [None]
        name = tokens[-1].text
        if name in definition.locals:
            return self._values(definition.locals[name], definition, depth + 1)
        if any(parameter and name == self._parameter_name(parameter) for parameter in definition.parameters or ()):
            return [Parameter(name)]
        for meant in self._named.get(name, ()):
            if meant.parameters is None and (meant.source is definition.source or meant.source.path.endswith(".h")):
                text = meant.body[1:] if _is(meant.body[0], "=") else meant.body[1:-1]
                if text and all(token.kind == "text" for token in text):
                    return ["".join(token.text for token in text)]
        return [None]

    @staticmethod
    def _parameter_name(tokens):
        end = next((index for index, token in enumerate(tokens) if _is(token, "=")), len(tokens))
        named = [token.text for token in tokens[:end] if token.kind == "name"]
        return named[-1] if named else ""

    def _logged(self, definition):
        body = definition.body
        aliases = {name for name, value in definition.locals.items()
                   if any(_is(token, "Log") for token in value) and any(_is(token, "&") for token in value)}
        for index in range(len(body) - 1):
            direct = _is(body[index], "Info", "Debug", "Error") and index > 1 and _is(body[index - 2], "Log")
            if _is(body[index + 1], "(") and (direct or body[index].text in aliases):
                arguments = _split(body[index + 2:_end(body, index + 1)])
                places = (Place(definition, body[index].line),)
                formats = self._values(arguments[0], definition)
                for text in formats:
                    if isinstance(text, str):
                        yield from self._composed(places, text, arguments[1:])
                if not any(isinstance(text, str) for text in formats):
                    yield from self._from_tables(places, arguments[1:])

    def _from_tables(self, places, arguments):
        """A format that is a field of a table: any literal with a conversion in a variable of the same source."""
        for each in places[0].definition.source.definitions:
            for token in each.body if each.parameters is None else ():
                if token.kind == "text" and "%" in token.text:
                    yield from self._composed((*places, Place(each, token.line)), token.text, arguments)

    def _composed(self, places, text, arguments):
        alternatives, start = [[]], 0
        arguments = iter(arguments)
        for conversion in _CONVERSION.finditer(text):
            literal = text[start:conversion.start()]
            start = conversion.end()
            if conversion["kind"] == "%":
                values = ["%"]
            else:
                argument = next(arguments, [])
                values = [(_VALUES.get(conversion["kind"], ".*?"),)] if conversion["kind"] != "s" else \
                    self._values(argument, places[0].definition)
            alternatives = [[*pieces, literal, value] for pieces in alternatives for value in values]
        for pieces in alternatives:
            yield from self._with_callers(Pattern(places, [*pieces, text[start:]], text), places[0].definition)

    def _with_callers(self, pattern, definition):
        """The pattern, and those that the texts of the callers make of it."""
        yield pattern
        wanted = {piece.name for piece in pattern.pieces if isinstance(piece, Parameter)}
        if not wanted or len(pattern.places) > _CALLERS:
            return
        names = [self._parameter_name(parameter) for parameter in definition.parameters]
        for caller, index, opening in self._calls.get(definition.name, ()):
            arguments = _split(caller.body[opening + 1:_end(caller.body, opening)])
            fits = len(arguments) == len(names) or ("..." in "".join(token.text for token in definition.parameters[-1])
                                                    and len(arguments) >= len(names) - 1)
            if caller is definition or not fits or definition not in self._meant(caller, index):
                continue
            given = dict(zip(names, arguments))
            alternatives = [[]]
            for piece in pattern.pieces:
                values = self._values(given.get(piece.name, []), caller) if isinstance(piece, Parameter) else [piece]
                alternatives = [[*pieces, value] for pieces in alternatives for value in values]
            places = (*pattern.places, Place(caller, caller.body[index].line))
            for pieces in alternatives:
                if any(isinstance(new, (str, Parameter, Field)) for new, old in zip(pieces, pattern.pieces)
                       if isinstance(old, Parameter)):
                    yield from self._with_callers(Pattern(places, pieces, pattern.format), caller)

    # Answers ------------------------------------------------------------------

    def operations(self, text):
        """The definitions of the operation that a line names first, of those that there are."""
        for match in _MENTION.finditer(text):
            *scope, name = match.group().split("::")
            kinds = [scope[-1], *self._bases.get(scope[-1], ())]
            found = [each for each in self._named.get(name, ())
                     if each.parameters is not None and each.scope[-1:] and each.scope[-1] in kinds]
            if found:
                signature = re.match(r"\((.*?)\)", text[match.end():])
                return self._overloads(found, signature.group(1)) if signature else found
        return []

    @staticmethod
    def _overloads(found, types):
        """Those of the definitions that take such arguments, if there are any."""
        wanted = [set(re.findall(r"\w+", each)) for each in re.split(r",(?![^<]*>)", types)] if types.strip() else []
        wanted = [words - {"std", "__cxx11", "sdbus_utils", "basic_string", "char"} for words in wanted]

        handlers = [each for each in found if any(
            _is(token, "MethodCall", "PropertyRead", "PropertyWrite") for part in each.parameters for token in part)]
        if {"sd_bus_message"} in wanted:  # the sd-bus callback of a handler, which takes what is served
            return handlers or found
        found = [each for each in found if each not in handlers] or found

        def takes(definition):
            given = [{token.text for token in each} for each in definition.parameters]
            return len(given) == len(wanted) and all(words <= have for words, have in zip(wanted, given))

        return [each for each in found if takes(each)] or \
            [each for each in found if len(each.parameters) == len(wanted)] or found

    def _match(self, pattern, text, steps):
        """The match of a pattern; None when it cannot make the line, or says nothing about it."""
        found = all(words in text for words in pattern.words) and pattern.expression.fullmatch(text)
        if not found:
            return None
        steps = min(steps.get(place.definition, _NEVER) for place in pattern.places)
        characters = sum(map(len, pattern.words))
        telling = steps < _NEVER or re.search(r"\w", "".join(pattern.words))
        pieces = [piece for piece in pattern.pieces if not isinstance(piece, str)]
        for piece, captured in zip(pieces, found.groups()):
            weight = 0 if isinstance(piece, tuple) else 1 if captured in self._fields[getattr(piece, "name", None)] \
                else 0.5 if len(captured) > 2 and any(
                    captured in place.definition.source.literals for place in pattern.places) else 0
            characters += weight * len(captured)
            telling = telling or weight * len(captured)
        return Match(pattern.places, pattern.format, characters, steps) if telling else None

    def matches(self, text):
        """The statements that can have made a line, the best first; those that are clearly worse are left out."""
        steps = self._steps(tuple(self.operations(text)))
        best = {}
        for pattern in self.patterns:
            match = self._match(pattern, text, steps)
            known = match and best.get(match.places[0])
            if match and (known is None or match.rank < known.rank):
                best[match.places[0]] = match
        found = sorted(best.values(), key=lambda match: match.rank)
        found = [match for match in found if match.characters == found[0].characters]
        if not found or not found[0].characters:
            return found[:1]
        return [match for match in found if match.steps < _NEVER] or found

    def open_ended(self):
        """The statements that log a text as it comes."""
        return [pattern.places[0] for pattern in self.patterns if pattern.pieces == ["", None, ""]]


def text_of(line):
    """A line without what a journal puts before it."""
    return line[_PREFIX.match(line).end():].strip()


# Telling --------------------------------------------------------------------------------------------------------------


def _tell(sources, text):
    """Prints the places of a line; returns whether there are any."""
    matches = sources.matches(text)
    for match in matches:
        statement, *callers = match.places
        print(f'{statement}: {statement.definition.title} logs "{match.format.strip()}"')
        for place in callers:
            print(f"{place}: {'with a text of' if place.definition.parameters is None else 'called by'} "
                  f"{place.definition.title}")
    for operation in sources.operations(text) if matches else ():
        print(f"{Place(operation, operation.line)}: the line names {operation.title}")
    if not matches:
        print(f"where: no statement here has words of: {text}\n"
              f"where: what logs texts as they come: {', '.join(map(str, sources.open_ended()))}", file=sys.stderr)
    return bool(matches)


def main(arguments):
    """Returns the exit status for the shell."""
    usage = 'usage: ./ccu where "LOG LINE"...'
    if arguments in (["-h"], ["--help"]):
        print(usage)
        return 0
    texts = [text for argument in arguments for text in map(text_of, argument.splitlines()) if text]
    if not texts or any(argument.startswith("-") for argument in arguments):
        print(usage, file=sys.stderr)
        return 2
    sources = Sources()
    known = True
    for text in texts:
        if len(texts) > 1:
            print(f"# {text}", flush=True)
        known = _tell(sources, text) and known
    return 0 if known else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
