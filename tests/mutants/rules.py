"""Makes mutants of a C++ source by rule. The sources are laid out by clang-format, so that blanks tell operators from
templates and references, and a statement begins on a line of its own or behind the condition that governs it."""

import collections
import hashlib
import re

Mutant = collections.namedtuple("Mutant", "file rule line text occurrence becomes start end replacement")
RULES = ("boundary", "equality", "logic", "arithmetic", "flags", "number", "constant", "text", "condition", "result",
         "drop call", "drop assignment", "drop jump", "swap statements", "swap arguments", "no catch", "empty handler")

# What stands for each other; both ways.
SWAPPED = {"boundary": {" < ": " <= ", " > ": " >= "}, "equality": {" == ": " != "}, "logic": {" && ": " || "},
           "arithmetic": {" + ": " - ", " += ": " -= ", "++": "--"}}
CONSTANTS = {"TRUE": "FALSE", "true": "false", "INFINITE": "0", "REG_SZ": "REG_BINARY",
             "GENERIC_WRITE": "GENERIC_READ", "KEY_WRITE": "KEY_READ", "CREATE_ALWAYS": "CREATE_NEW",
             "PM_REMOVE": "PM_NOREMOVE", "CP_UTF8": "CP_ACP", "HKEY_CURRENT_USER": "HKEY_LOCAL_MACHINE",
             "HKEY_LOCAL_MACHINE": "HKEY_CURRENT_USER", "FindClose": "CloseHandle"}
RESULTS = {"true": "false", "false": "true", "0": "1", "1": "0"}


def mask(source, strings=True):
    """`source` with blanks for comments, for preprocessor lines and static assertions, and for texts where asked."""
    def blank(match):
        kept = match[0][0] in "\"'" and not strings
        return match[0] if kept else re.sub(r"[^\n]", " ", match[0])
    source = re.sub(r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|(?<!\w)\'(?:\\.|[^\'\\\n])+\'', blank, source, flags=re.S)
    code = source if strings else re.sub(r'"(?:\\.|[^"\\\n])*"', lambda m: '"' + " " * (len(m[0]) - 2) + '"', source)
    for pattern in (r"^[ \t]*#(?:[^\n]*\\\n)*[^\n]*", r"\bstatic_assert\([^;]*;", r"^\[\[[^\]]*\]\]", r"\[\[.*?\]\]"):
        for match in re.finditer(pattern, code, flags=re.M):
            source = source[:match.start()] + re.sub(r"[^\n]", " ", match[0]) + source[match.end():]
    return source


def closing(code, start):
    """The index of the bracket that closes the one at `start`."""
    depth = 0
    for index in range(start, len(code)):
        depth += {"(": 1, "{": 1, "[": 1, ")": -1, "}": -1, "]": -1}.get(code[index], 0)
        if depth == 0:
            return index
    return len(code)


def statements(code):
    """Start and end of every indented statement that ends in a semicolon, without what governs it."""
    for match in re.finditer(r"(?:^|(?<=[)\]t] \{)) +(?=[^\s{}#])", code, flags=re.M):
        start = match.end()
        before = code[:match.start()].rstrip()
        if not before or before[-1] not in ";{}:)e":
            continue
        if before[-1] == "e" and not before.endswith("else"):
            continue
        while True:
            governed = re.compile(r"(?:\} )?(?:else )?(?:if|while|for) (?=\()|else |do ").match(code, start)
            if not governed:
                break
            start = governed.end()
            if code[start] == "(":
                start = closing(code, start) + 1
            start += len(code[start:]) - len(code[start:].lstrip())
        end = start
        while end < len(code) and code[end] not in ";{}":
            end = closing(code, end) + 1 if code[end] in "([" else end + 1
            if end < len(code) and code[end] == "{" and code[end - 1] in "=(, )":
                end = closing(code, end) + 1
        if end < len(code) and code[end] == ";" and end > start:
            yield start, end + 1


def kind_of(statement):
    """Which rule drops the statement; None for declarations and all that must stay."""
    if re.match(r"(break|continue|return);", statement):
        return "drop jump"
    if re.match(r"(throw|XDT_RAISE)\b", statement) or re.match(r"[\w:.>*()\[\]-]+?(<.*?>)?\(.*\);$", statement, re.S):
        return None if statement.startswith(("return", "va_")) else "drop call"
    if re.match(r"(delete )|[\w.>*()\[\]-]+(\[.*?\])? [-+|&]?= |(\+\+|--)\w|[\w]+(\+\+|--);", statement):
        return "drop assignment"
    return None


def depends(one, other):
    """Whether the order of two statements may matter: of two assignments, when one names what the other sets."""
    if "throw" in other or "XDT_RAISE" in other or one.startswith("std::memcpy") and other.startswith("std::memcpy"):
        return False
    if {kind_of(one), kind_of(other)} != {"drop assignment"}:
        return True
    names = [re.split(r" [-+|&]?= ", statement)[0] for statement in (one, other)]
    return any(re.search(re.escape(name) + r"\b", text) for name, text in zip(names, (other, one)))


def edits(source):
    """Every edit by rule: rule, start, end, replacement."""
    code, texts = mask(source), mask(source, strings=False)
    for rule, pairs in SWAPPED.items():
        for one, other in pairs.items():
            for old, new in ((one, other), (other, one)):
                for match in re.finditer(re.escape(old), code):
                    begin = code.rfind("\n", 0, match.start()) + 1
                    line = source[begin:source.find("\n", match.start())]
                    if rule == "arithmetic" and ("TEXT(" in line or "folder" in line.lower()):
                        continue  # texts are joined
                    yield rule, match.start(), match.end(), new
    for match in re.finditer(r"\b[A-Z]\w+ \| ", code):
        yield "flags", match.start(), match.end(), ""
    for match in re.finditer(r"(?<![\w.])(0x[0-9A-Fa-f]+|\d+)(?=[^\w.]|u\b)", code):
        if code[:match.start()].endswith("return "):
            continue  # a result
        before = code[code.rfind("\n", 0, match.start()) + 1:match.start()].strip()
        if before == "Sleep(" or before.startswith("PostThreadMessageW("):
            continue  # how long a loop that looks again rests, and what nobody reads
        number = int(match[0], 0)
        changed = number - 1 if number > 1 else number + 1
        yield "number", match.start(), match.end(), hex(changed) if match[0].startswith("0x") else str(changed)
    for match in re.finditer(r"(?<!return )\b(" + "|".join(CONSTANTS) + r")\b", code):
        before = code[:match.start()]
        if not before.endswith("while ("):
            yield "constant", match.start(), match.end(), CONSTANTS[match[0]]
    for match in re.finditer(r'"(?:\\.|[^"\\\n])*(\w)(?:[^\w"\\]|\\.)*"', texts):
        yield "text", match.start(1), match.end(1), "x" if match[1] != "x" else "y"
    for match in re.finditer(r"\b(?:if|while) \(", code):
        start, end = match.end(), closing(code, match.end() - 1)
        condition = code[start:end]
        simple = re.search(r" (==|!=) ", condition) and not re.search(r" (&&|\|\|) ", condition)
        if condition != "true" and not simple:
            yield "condition", start, end, "!(" + source[start:end] + ")"
    for match in re.finditer(r"\breturn (true|false|0|1);", code):
        yield "result", match.start(1), match.end(1), RESULTS[match[1]]
    def alone(start):
        return not code[code.rfind("\n", 0, start):start].strip()
    previous = None
    for start, end in statements(code):
        kind = kind_of(code[start:end])
        if kind:
            yield kind, start, end, "{}"
            if previous and alone(start) and alone(previous[0]) and code[previous[1]:start].strip(" ") == "\n" and \
                    depends(code[previous[0]:previous[1]], code[start:end]):
                yield ("swap statements", previous[0], end,
                       source[start:end] + source[previous[1]:start] + source[previous[0]:previous[1]])
        previous = (start, end) if kind and "jump" not in kind else None
    simple = r"(?:\"[^\"\n]*\"|[\w.:>-]+(?:\(\))?)"
    for match in re.finditer(r"(?<=\w\()(?<!min\()(?<!max\()(" + simple + r"), (" + simple + r")(?=[,)])", code):
        if match[1] != match[2]:
            yield "swap arguments", match.start(), match.end(), match[2] + ", " + match[1]
    for match in re.finditer(r"\bcatch \(([^)]*)\) \{", code):
        yield "no catch", match.start(1), match.end(1), "const volatile char* const*"
        body, end = match.end(), closing(code, match.end() - 1)
        kept = re.search(r"return [^;]*;\s*$", code[body:end])
        kept = kept.start() if kept else end - body
        if code[body:body + kept].strip():
            yield "empty handler", body, body + kept, " "


def mutants_of(file, source):
    """All mutants of `source`. A mutant is known by file, rule, line text, what it becomes, and its occurrence among
    the equal ones, so that it stays the same when lines move."""
    seen = collections.Counter()
    for rule, start, end, replacement in sorted(edits(source), key=lambda edit: (edit[1], edit[2], edit[0])):
        first, last = source.rfind("\n", 0, start) + 1, source.find("\n", end)
        text = " ".join(source[first:last].split())
        becomes = " ".join((source[first:start] + replacement + source[end:last]).split())
        seen[rule, text, becomes] += 1
        yield Mutant(file, rule, source.count("\n", 0, start) + 1, text, seen[rule, text, becomes], becomes, start, end,
                     replacement)


def identity(mutant):
    """As a tuple; `mutant` is a Mutant or an entry of a report."""
    fields = mutant._asdict() if isinstance(mutant, Mutant) else mutant
    return tuple(fields[name] for name in ("file", "rule", "text", "becomes", "occurrence"))


def sample(mutants, share):
    """About that share of the mutants, chosen by what each is and not by the others, and one at least of each rule in
    each file."""
    def draw(mutant):
        return int(hashlib.sha256(repr(identity(mutant)).encode()).hexdigest()[:8], 16) / 2**32
    firsts = {}
    for mutant in mutants:
        group = mutant.file, mutant.rule
        firsts[group] = min(firsts.get(group, mutant), mutant, key=draw)
    return [mutant for mutant in mutants if draw(mutant) < share or firsts[mutant.file, mutant.rule] is mutant]
