"""Reads the manual pages' sources."""
import pathlib
import re

FOLDER = pathlib.Path(__file__).resolve().parents[2] / "Documentation/man"
COMMANDS = ("dmg-to-pkg", "recompress", "sign", "identities", "components")


def page(name):
    return (FOLDER / name).read_text()


def section(source, title):
    return re.search(rf'^\.Sh {title}\n(.*?)(?=^\.Sh |\Z)', source, re.M | re.S)[1]


def flags(source):
    """The options that macros name, with their dashes."""
    return {"-" + flag for line in source.splitlines() if line.startswith(".")
            for flag in re.findall(r"\bFl (-?[a-zR][\w-]*(?:=none)?)", line)}


def calls(source):
    """The calls of the synopsis: the program or tool, and the rest of the macros."""
    return re.findall(r"^\.Nm ?(.*)\n((?:(?!\.Nm).*\n)*)", section(source, "SYNOPSIS"), re.M)


def optionsOfCommands():
    """The options that corvane(1) gives each command in its synopsis; --help stands for all of them."""
    options = {}
    for _, macros in calls(page("corvane.1")):
        command = re.match(r"\.Cm (\S+)", macros)
        if command:
            options[command[1]] = flags(macros) | {"-h", "--help"}
    for command in ("dmg-to-pkg", "recompress", "sign"):
        options[command].add("--version")
    return options
