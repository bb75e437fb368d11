"""Counts how often each block of tools/hwregboard runs: the modules are compiled with a counter at the head of each
block, which costs a tenth of what a trace does.

install() comes before the first import of hwregboard.
"""

import ast
import importlib.abc
import importlib.machinery
import sys

PACKAGE = "hwregboard"

mHits: list[int] = []
mPlaces: list[str] = []  # FILE:LINE of each counter


class Counters(ast.NodeTransformer):
    """Blocks of statements begin with `_hits[N] += 1`; what an expression may leave out becomes `_hit(N) or ...`."""

    def __init__(self, path: str) -> None:
        self.path = path

    def number(self, node: ast.AST) -> ast.Constant:
        mHits.append(0)
        mPlaces.append(f"{self.path}:{node.lineno}")
        return ast.Constant(len(mHits) - 1)

    def counted(self, body: list[ast.stmt]) -> list[ast.stmt]:
        if not body:
            return body
        counter = ast.Subscript(ast.Name("_hits", ast.Load()), self.number(body[0]), ast.Store())
        count = ast.AugAssign(counter, ast.Add(), ast.Constant(1))
        return [ast.fix_missing_locations(ast.copy_location(count, body[0])), *body]

    def value(self, node: ast.expr) -> ast.expr:
        call = ast.Call(ast.Name("_hit", ast.Load()), [self.number(node)], [])
        return ast.fix_missing_locations(ast.copy_location(ast.BoolOp(ast.Or(), [call, node]), node))

    def statements(self, node: ast.AST) -> ast.AST:
        self.generic_visit(node)
        for field in ("body", "orelse"):
            if hasattr(node, field):
                setattr(node, field, self.counted(getattr(node, field)))
        return node

    visit_FunctionDef = visit_If = visit_For = visit_While = visit_ExceptHandler = statements

    def visit_BoolOp(self, node: ast.BoolOp) -> ast.AST:
        self.generic_visit(node)
        node.values[1:] = [self.value(value) for value in node.values[1:]]
        return node

    def visit_IfExp(self, node: ast.IfExp) -> ast.AST:
        self.generic_visit(node)
        node.body, node.orelse = self.value(node.body), self.value(node.orelse)
        return node


def hit(number: int) -> None:
    mHits[number] += 1


class Loader(importlib.machinery.SourceFileLoader):
    def get_code(self, fullname: str) -> object:
        path = self.get_filename(fullname)
        tree = Counters(path.rpartition("/")[2]).visit(ast.parse(self.get_data(path), path))
        return compile(tree, path, "exec")

    def exec_module(self, module: object) -> None:
        module.__dict__.update(_hits=mHits, _hit=hit)
        super().exec_module(module)


class Finder(importlib.abc.MetaPathFinder):
    def find_spec(self, fullname: str, path: object, target: object = None) -> object:
        if fullname.partition(".")[0] != PACKAGE:
            return None
        found = importlib.machinery.PathFinder.find_spec(fullname, path, target)
        if found is not None:
            found.loader = Loader(found.loader.name, found.loader.path)
        return found


def install() -> None:
    if PACKAGE in sys.modules:
        raise RuntimeError(f"{PACKAGE} is imported already")
    sys.meta_path.insert(0, Finder())


def clear() -> None:
    mHits[:] = [0] * len(mHits)


def reached() -> set[tuple[int, int]]:
    """(block, how often in powers of four) of what ran since clear()."""
    return {(number, count.bit_length() + 1 >> 1) for number, count in enumerate(mHits) if count}


def blocks() -> int:
    return len(mHits)


def place(number: int) -> str:
    return mPlaces[number]
