"""The same test with a little and with a lot: what takes long runs in whole runs only."""

import pytest


def few_and_many(name, few, many):
    """Gives the test's argument a small value, and a large one under the mark slow."""
    return pytest.mark.parametrize(name, [few, pytest.param(many, marks=pytest.mark.slow)])
