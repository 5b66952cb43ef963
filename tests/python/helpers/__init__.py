"""What the tests share: models, sample arrays, hostile objects, requests to the buffer protocol."""
