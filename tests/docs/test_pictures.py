"""The pictures of docs/pictures show what the program shows today, and nothing is fetched for them."""

import re

import pytest

import pictures

FILES = sorted(pictures.FOLDER.glob("*.svg"))
NAMES = [*pictures.SCREENS, *pictures.drawings()]


def test_each_picture_is_made_by_the_script():
    assert {path.stem for path in FILES} == set(NAMES)


@pytest.mark.parametrize("name", pictures.SCREENS)
def test_a_screen_is_what_the_program_shows(name):
    lines, width = pictures.SCREENS[name]()
    kept = (pictures.FOLDER / f"{name}.svg").read_text()
    assert [line.rstrip() for line in pictures.text_of(kept) if line] == \
        [pictures.without_colours(line).rstrip() for line in lines]
    assert kept == pictures.drawn(name, lines, width), "make it anew: tests/docs/pictures.py --update"


@pytest.mark.parametrize("name", pictures.drawings())
def test_a_drawing_is_that_of_its_source(name):
    kept = (pictures.FOLDER / f"{name}.svg").read_text()
    assert pictures.said(kept) == pictures.said(pictures.rendered(name)), "tests/docs/pictures.py --update"


@pytest.mark.parametrize("path", FILES, ids=lambda path: path.stem)
def test_a_picture_is_small_and_fetches_nothing(path):
    text = path.read_text()
    assert len(text) < 60000
    assert set(re.findall(r"https?://[^\"' ]*", text)) <= {
        "http://www.w3.org/2000/svg", "http://www.w3.org/1999/xlink",
        "http://www.w3.org/Graphics/SVG/1.1/DTD/svg11.dtd"}


@pytest.mark.parametrize("path", FILES, ids=lambda path: path.stem)
def test_a_picture_is_shown_in_the_readme(path):
    assert re.search(rf"!\[[^\]]{{20,}}\]\(docs/pictures/{path.name}\)", (pictures.TOP / "README.md").read_text())
