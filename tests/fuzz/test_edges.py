"""What edges.py says of edges that are taken, left or listed as out of reach, and of sources that it does not see."""

import edges

FILE = "Base/Arith.cpp"
HERE, THERE = edges.Place(FILE, "Sum", "if (a)"), edges.Place(FILE, "Sum", "return a;")


def counted(taken, *rows):
    """The count of two edges at HERE and one at THERE, and the texts of the rows that are told to be wrong."""
    places = {edges.Edge("library", number): place for number, place in enumerate([HERE, HERE, THERE])}
    modules, wrong = edges.count(dict(zip(places, taken)), places, [(FILE, "Sum", text, "why") for text in rows])
    return modules["Base/Arith"], [row[2] for row in wrong]


def test_an_edge_that_is_left_is_missing_until_it_is_listed():
    module, wrong = counted([True, False, True])
    assert (module.reached, module.share() < 67, dict(module.missing), wrong) == (2, True, {HERE: 1}, [])
    module, wrong = counted([True, False, True], HERE.text)
    assert (module.exempt, module.share(), dict(module.missing), wrong) == (1, 100, {}, [])


def test_what_is_listed_and_taken_or_not_there_is_told():
    assert counted([True, True, False], HERE.text)[1] == [HERE.text]
    assert counted([True, True, True], "no such line")[1] == ["no such line"]


def test_a_whole_procedure_is_listed_as_long_as_none_of_it_is_taken():
    assert counted([False, False, False], "*")[1] == []
    assert counted([False, False, True], "*")[1] == ["*"]


def test_a_module_below_the_share_is_told(capsys):
    module = counted([True, False, True])[0]
    assert edges.report({"Base/Arith": module}, 66, False) == []
    assert len(edges.report({"Base/Arith": module}, 67, False)) == 1
    capsys.readouterr()


def test_a_source_without_edges_is_told():
    left = edges.not_counted({"Base/Arith": None})
    assert "Base/Text" in left and "sim/Mistake" in left
    assert "Base/Arith" not in left and "Platform/PciClassCode" not in left
    assert edges.not_counted(dict.fromkeys(left + ["Base/Arith"])) == []
