"""Checks documents of the langmon command against its JSON schema.

Usage: validate_json.py SCHEMA DOCUMENTS
DOCUMENTS holds one JSON document a line, as the command writes them. Prints
"N documents valid" and exits 0, or names each document that is not and
why, and exits 1. Uses python3-jsonschema (Debian's package), draft 2020-12.
"""
import json
import sys

import jsonschema


def main():
    schema_path, documents_path = sys.argv[1], sys.argv[2]
    with open(schema_path, encoding="utf-8") as f:
        schema = json.load(f)
    jsonschema.Draft202012Validator.check_schema(schema)
    validator = jsonschema.Draft202012Validator(schema)
    count = 0
    failed = 0
    with open(documents_path, encoding="utf-8") as f:
        for number, line in enumerate(f, 1):
            document = json.loads(line)
            count += 1
            error = jsonschema.exceptions.best_match(validator.iter_errors(document))
            if error is not None and document.get("command") in schema["$defs"]:
                # The command's own definition says more precisely what is wrong
                # than "valid under none of the given schemas".
                own = dict(schema, **{"$ref": "#/$defs/" + document["command"]})
                del own["oneOf"]
                error = jsonschema.exceptions.best_match(
                    jsonschema.Draft202012Validator(own).iter_errors(document)) or error
            if error is not None:
                failed += 1
                where = "/".join(str(part) for part in error.absolute_path)
                print(f"document {number} ({document.get('command')}): at /{where}: {error.message[:400]}")
    if failed:
        return 1
    print(f"{count} documents valid")
    return 0


if __name__ == "__main__":
    sys.exit(main())
