"""Checks settings files: check_settings.py SCHEMA DESCRIBE FILE...

Each file is held against the schema, then loaded by DESCRIBE, the daemon's own code, which says what
each input does in each application. Of a scenario, all settings in it are checked that are objects.
One line tells each mistake and its place. Status 0: all files are good, 1: one is not.
"""
import json
import os
import re
import subprocess
import sys
import tempfile

import jsonschema


class Mistake(Exception):
    pass


def object_of(pairs):
    """An object of a file, whose keys must all differ: the daemon would use the last of them."""
    keys = set()
    for key, _ in pairs:
        if key in keys:
            raise Mistake(f'"{key}" stands twice in one object')
        keys.add(key)
    return dict(pairs)


def read(file):
    """The bytes of a file, and the document that they are."""
    try:
        if os.path.exists(file) and not os.path.isfile(file):
            raise Mistake("it is no regular file, which the daemon does not read")
        with open(file, "rb") as stream:
            text = stream.read()
        return text, json.loads(text.decode(), object_pairs_hook=object_of)
    except json.JSONDecodeError as error:
        raise Mistake(f"line {error.lineno}, column {error.colno}: {error.msg}") from error
    except UnicodeDecodeError as error:
        raise Mistake(f"byte {error.start}: this is no UTF-8") from error
    except RecursionError as error:
        raise Mistake("it is nested too deep") from error
    except ValueError as error:
        raise Mistake(f"a number in it is too long: {error}") from error
    except OSError as error:
        raise Mistake(error.strerror) from error


def settings_within(value, where=""):
    """The settings in a part of a scenario, each with the words that tell its place."""
    items = value.items() if isinstance(value, dict) else []
    if isinstance(value, list):
        items = enumerate(value, 1)
    for key, inner in items:
        if key == "settings" and isinstance(inner, dict):
            yield f"{where}settings: ", json.dumps(inner).encode(), inner
        elif key != "settings":
            yield from settings_within(inner, f"{where}{key} ")


def settings_of(text, document):
    """The settings in a file, which may be a scenario: their place, text and document."""
    if (isinstance(document, dict) and "appState" not in document
            and not document.keys().isdisjoint(("steps", "runs"))):
        return list(settings_within(document))
    return [("", text, document)]


def shown(value):
    text = json.dumps(value, ensure_ascii=False)
    return text if len(text) <= 40 else text[:37] + "..."


def message(error):
    place = "".join(f"[{key}]" if isinstance(key, int) else f".{key}" for key in error.absolute_path)
    schema = error.schema
    if error.validator == "required":
        missing = next(key for key in schema["required"] if key not in error.instance)
        what = f'"{missing}" is missing'
    else:
        what = f"{shown(error.instance)} is no {schema['title']}"
        if "description" in schema:
            what += ". " + schema["description"]
    return f"{place.lstrip('.')}: {what}" if place else what


def normal(name):
    return re.sub("[^a-z0-9]", "", name.lower(), flags=re.ASCII)


def repetitions(settings):
    """What stands twice for the daemon, which uses the later one only."""
    models = set()
    for number, mouse in enumerate(settings["appState"]):
        if mouse["type"] in models:
            yield f"appState[{number}].type: {mouse['type']} stands in an entry before this one"
        models.add(mouse["type"])
        names = {}
        for name in mouse["appConfigs"]:
            first = names.setdefault(normal(name), name)
            if first != name:
                yield f"appState[{number}].appConfigs: \"{first}\" and \"{name}\" are one name"


def titles(values):
    return {value["const"]: value["title"] for value in values["oneOf"]}


class Checker:
    def __init__(self, schema, describe):
        with open(schema, encoding="utf-8") as stream:
            schema = json.load(stream)
        parts = schema["$defs"]
        self._validator = jsonschema.Draft202012Validator(schema)
        self._describe = describe
        self._models = titles(parts["mouse"]["properties"]["type"])
        self._inputs = {key: value["title"] for key, value in parts["bindings"]["properties"].items()}
        self._keys = titles(parts["key"])

    def check(self, text, settings):
        """What the settings do, in lines. Raises Mistake with a line for each mistake."""
        errors = sorted(self._validator.iter_errors(settings), key=lambda error: str(error.path))
        mistakes = [message(error) for error in errors] or list(repetitions(settings))
        if mistakes:
            raise Mistake("\n".join(mistakes))
        return self._told(self._loaded(text))

    def _loaded(self, text):
        with tempfile.TemporaryDirectory() as home:
            folder = os.path.join(home, "Library", "Application Support", "QlxControlCenter")
            os.makedirs(folder)
            with open(os.path.join(folder, "deamon-settings.json"), "wb") as stream:
                stream.write(text)
            done = subprocess.run([self._describe], env={**os.environ, "HOME": home},
                                  encoding="utf-8", errors="backslashreplace",
                                  capture_output=True, check=False)
        if done.returncode != 0:
            raise Mistake("the daemon says: " + done.stderr.strip())
        return [json.loads(line) for line in done.stdout.splitlines()]

    def _told(self, bindings):
        lines = []
        before = None
        for model, name, key, action, parameters, is_default in bindings:
            if (model, name) != before:
                where = "everywhere else" if normal(name) == "default" else f"in {name}"
                lines.append(f"  {self._models[model]}, {where}")
                before = model, name
            what = action.replace("_", " ")
            if isinstance(parameters, list):
                what += " " + (" ".join(self._keys[key] for key in parameters) or "without a key")
            elif parameters is not None:
                what += " " + parameters
            as_elsewhere = "  (as everywhere else)" if is_default else ""
            lines.append(f"    {self._inputs[key] + ' (' + key + ')':31}{what}{as_elsewhere}")
        return lines or ["  nothing is bound"]


def tell(where, mistakes):
    for line in str(mistakes).splitlines():
        print(f"{where}: {line}", file=sys.stderr)


def main():
    for stream in (sys.stdout, sys.stderr):
        stream.reconfigure(encoding="utf-8", errors="backslashreplace")
    checker = Checker(sys.argv[1], sys.argv[2])
    good = True
    for file in sys.argv[3:]:
        try:
            found = settings_of(*read(file))
        except Mistake as mistake:
            tell(file, mistake)
            good = False
            continue
        if not found:
            print(f"{file}: a scenario without settings to check")
        for where, text, settings in found:
            try:
                print(f"{file}: {where}good", *checker.check(text, settings), sep="\n")
            except Mistake as mistake:
                tell(f"{file}: {where}".rstrip(": "), mistake)
                good = False
    return 0 if good else 1


sys.exit(main())
