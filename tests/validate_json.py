#!/usr/bin/env python3
"""validate_json.py SCHEMA: checks lines "DEFINITION JSON" of standard input against definitions of the schema."""
import json
import sys

import jsonschema

with open(sys.argv[1], encoding="utf-8") as file:
    schema = json.load(file)


def refuse(text):
    raise ValueError(f"{text} is not JSON")


checked = 0
for line in sys.stdin.buffer:
    name, text = line.decode("utf-8").split(" ", 1)
    answer = json.loads(text, parse_constant=refuse)
    jsonschema.Draft202012Validator({**schema, "$ref": "#/$defs/" + name}).validate(answer)
    checked += 1
print(checked)
