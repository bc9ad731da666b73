"""The test engine must run on Python 2.6 as well as on today's: its grammar and its library use."""

import ast
import string
import warnings

import pytest

from orvpeer import ENGINE

# The standard library's modules of 2.6 that exist in Python 3 under the same name.
MODULES = {"__future__", "binascii", "collections", "errno", "json", "math", "optparse", "os", "random", "select",
           "shlex", "signal", "socket", "struct", "sys", "time"}

NODES = tuple(getattr(ast, name) for name in (
    "JoinedStr", "AsyncFunctionDef", "AsyncFor", "AsyncWith", "Await", "YieldFrom", "Nonlocal", "AnnAssign",
    "NamedExpr", "Set", "SetComp", "DictComp", "Starred", "Match", "MatMult", "TryStar") if hasattr(ast, name))

# Names younger than 2.6 (or gone, or of another meaning, in Python 3).
NAMES = {"OrderedDict", "Counter", "ChainMap", "monotonic", "perf_counter", "isfinite", "total_seconds", "bit_length",
         "to_bytes", "from_bytes", "memoryview", "fsencode", "fsdecode", "casefold", "nullcontext", "viewitems",
         "FileNotFoundError", "ConnectionError", "ConnectionRefusedError", "BlockingIOError", "BrokenPipeError",
         "InterruptedError", "ProcessLookupError", "PermissionError", "TimeoutError", "iteritems", "itervalues",
         "iterkeys", "has_key", "xrange", "unicode", "basestring", "raw_input", "unichr", "long", "reduce", "erf",
         "gamma", "expm1", "lru_cache", "cached_property", "check_output", "get_terminal_size", "makedirs_exist_ok",
         "sendmsg", "recvmsg", "setswitchinterval", "isclose", "lgamma", "cmp_to_key", "isidentifier", "breakpoint"}


def complaints(source):
    """What Python 2.6 would not accept in this source, one text each."""
    found = []
    if not source.isascii():
        found.append("not ASCII, and no coding line")
    for node in ast.walk(ast.parse(source)):
        found += [f"line {getattr(node, 'lineno', 0)}: {text}" for text in check(node)]
    return found


def check(node):
    if isinstance(node, NODES) and not is_call_star(node):
        yield f"{type(node).__name__} is younger than 2.6"
    if isinstance(node, ast.Import):
        yield from (f"import {a.name}" for a in node.names if a.name not in MODULES)
    if isinstance(node, ast.ImportFrom) and node.module not in MODULES:
        yield f"from {node.module} import"
    if isinstance(node, ast.Name) and node.id in NAMES or isinstance(node, ast.Attribute) and node.attr in NAMES:
        yield f"{getattr(node, 'id', getattr(node, 'attr', ''))} is not in both"
    if isinstance(node, ast.With) and len(node.items) > 1:
        yield "with of several items"
    if isinstance(node, ast.Raise) and node.cause:
        yield "raise from"
    if isinstance(node, (ast.FunctionDef, ast.Lambda)):
        a = node.args
        if a.kwonlyargs or a.posonlyargs:
            yield "keyword-only or positional-only parameters"
        if any(p.annotation for p in a.args) or getattr(node, "returns", None):
            yield "annotations"
    if isinstance(node, ast.ClassDef):
        if node.keywords:
            yield "class keywords"
        if not node.bases:
            yield "an old-style class in Python 2"
    if isinstance(node, ast.Call):
        yield from check_call(node)


def is_call_star(node):
    """f(*args): the one place for a star, as the last positional argument."""
    return isinstance(node, ast.Starred) and getattr(node, "in_call", False)


def check_call(node):
    for argument in node.args[:-1]:
        if isinstance(argument, ast.Starred):
            yield "an argument behind *args"
    if node.args and isinstance(node.args[-1], ast.Starred):
        node.args[-1].in_call = True
    if isinstance(node.func, ast.Name) and node.func.id == "super" and not node.args:
        yield "super() without arguments"
    if isinstance(node.func, ast.Attribute):
        if node.func.attr == "format" and isinstance(node.func.value, ast.Constant):
            if any(field == "" for _, field, _, _ in string.Formatter().parse(node.func.value.value)):
                yield "format fields without numbers"
        if node.func.attr in ("encode", "decode") and node.keywords:
            yield "encode and decode take no keywords in 2.6"


def old_grammar_accepts(source):
    """Python 2's own grammar, with print as a function."""
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")
        from lib2to3 import pygram, pytree
        from lib2to3.pgen2 import driver, parse
        try:
            driver.Driver(pygram.python_grammar_no_print_statement, pytree.convert).parse_string(source)
        except parse.ParseError:
            return False
    return True


def test_the_test_engine_is_in_the_common_subset():
    source = ENGINE.read_text(encoding="utf-8")
    assert complaints(source) == []
    assert old_grammar_accepts(source)


def test_division_and_print_mean_the_same_in_both():
    first = next(n for n in ast.parse(ENGINE.read_text()).body if isinstance(n, ast.ImportFrom))
    assert first.module == "__future__" and {"division", "print_function"} <= {a.name for a in first.names}


@pytest.mark.parametrize("source", [
    "f'{x}'", "{1, 2}", "{x for x in y}", "{x: 1 for x in y}", "with a, b: pass", "import argparse", "import pathlib",
    "from enum import Enum", "def f(*, a): pass", "def f(a: int): pass", "def f() -> int: pass", "class A: pass",
    "class A(B, metaclass=C): pass", "raise A from b", "def f():\n  x = 1\n  def g():\n    nonlocal x", "a, *b = c",
    "[*a, b]", "f(*a, b)", "super().x()", "'{} {}'.format(1, 2)", "x: int = 1", "(x := 1)", "time.monotonic()",
    "except_ = FileNotFoundError", "'\u00e9'", "b.decode(errors='replace')", "a @ b", "async def f(): pass",
    "def f():\n  yield from g()", "for k, v in d.iteritems(): pass"])
def test_the_check_finds_what_2_6_does_not_know(source):
    assert complaints(source)


@pytest.mark.parametrize("source", [
    "f(*a)", "f(x, *a)", "'{0}'.format(1)", "'%d' % 1", "class A(object): pass", "dict((a, b) for a, b in c)",
    "try:\n  pass\nexcept OSError as error:\n  pass", "with a as b: pass", "0o077", "b'x'", "print('x', file=y)"])
def test_the_check_lets_pass_what_both_know(source):
    assert complaints(source) == [] and old_grammar_accepts(source + "\n")
