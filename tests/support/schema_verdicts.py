"""Compares a JSON schema with another reader of the format.

schema_verdicts.py SCHEMA: reads lines of "valid" or "invalid", a blank and a document, and
fails if the schema says otherwise of one.
"""
import json
import sys

from jsonschema import Draft202012Validator

with open(sys.argv[1], encoding="utf-8") as file:
    schema = json.load(file)
Draft202012Validator.check_schema(schema)
validator = Draft202012Validator(schema)
differences = 0
for line in sys.stdin:
    verdict, document = line.split(" ", 1)
    if validator.is_valid(json.loads(document)) != (verdict == "valid"):
        print("the reader says", line, end="")
        differences += 1
sys.exit(differences != 0)
