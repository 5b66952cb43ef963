"""Helpers of the tests: models, sample arrays, hostile objects, expected errors."""
