#!/usr/bin/env python3
"""Writes the library's man pages from the Doxygen XML of its headers.

One page in section 3 for each function of oxa.h, and the overview oxa(7). Everything they say
about the API comes from the headers' doc comments; the examples come from docs/man/examples.

Usage: gen-man.py XML_DIR EXAMPLES_DIR OUT_DIR VERSION
"""
import os
import sys
import xml.etree.ElementTree as ET

MANUAL = "liboxa Manual"

# The topics of the overview, in order, and the functions each one presents. A function of oxa.h
# that is in none of them stops the build, so that the overview never leaves one out.
TOPICS = [
    ("CONNECTING", "The connection to the agent, started once and reported on the main loop.",
     ["oxa_initialize", "oxa_deinitialize"]),
    ("SERVICES", "A service of one type is created, registered with the agent and followed.",
     ["oxa_service_create", "oxa_service_destroy", "oxa_service_register",
      "oxa_service_unregister", "oxa_service_get_state", "oxa_service_set_app_id",
      "oxa_service_set_state_changed_cb", "oxa_service_unset_state_changed_cb"]),
    ("DISCOVERY AND DEVICES", "Discovery finds devices; a device tells its name, address, type "
     "and data; the application publishes its own context.",
     ["oxa_start_discovery", "oxa_stop_discovery", "oxa_foreach_found_device",
      "oxa_get_my_device", "oxa_update_context", "oxa_device_clone", "oxa_device_destroy",
      "oxa_device_get_type", "oxa_device_get_name", "oxa_device_get_address",
      "oxa_device_get_raw_context", "oxa_device_get_context"]),
    ("COMMANDS", "A command is typed, numbered and carries bytes to one device; its outcome "
     "arrives later.",
     ["oxa_command_create", "oxa_command_destroy", "oxa_command_get_id", "oxa_command_get_type",
      "oxa_command_get_payload", "oxa_command_get_address", "oxa_send_command"]),
    ("SIMPLE MESSAGES", "A simple message carries bytes to one device, inside a command.",
     ["oxa_simple_message_create", "oxa_simple_message_destroy", "oxa_send_simple_message"]),
    ("EVENTS", "Subscriptions deliver the agent's events to callbacks on the main loop.",
     ["oxa_set_device_found_cb", "oxa_unset_device_found_cb", "oxa_set_device_lost_cb",
      "oxa_unset_device_lost_cb", "oxa_set_context_changed_cb", "oxa_unset_context_changed_cb",
      "oxa_set_command_received_cb", "oxa_unset_command_received_cb",
      "oxa_set_simple_message_received_cb", "oxa_unset_simple_message_received_cb"]),
]


def escape(text):
    """Escapes text for troff: backslashes, and dashes that must stay dashes."""
    return text.replace("\\", "\\e").replace("-", "\\-")


def line_start_safe(text):
    """Keeps a line from starting with a control character."""
    lines = []
    for line in text.split("\n"):
        if line.startswith(".") or line.startswith("'"):
            line = "\\&" + line
        lines.append(line)
    return "\n".join(lines)


class Renderer:
    """Turns Doxygen's description markup into troff."""

    def __init__(self):
        self.refs = set()

    def inline(self, elem):
        out = escape(elem.text or "")
        for child in elem:
            out += self.element(child)
            out += escape(child.tail or "")
        return out

    def element(self, elem):
        tag = elem.tag
        if tag == "computeroutput":
            return "\\fB" + self.inline(elem) + "\\fP"
        if tag in ("emphasis", "parametername"):
            return "\\fI" + self.inline(elem) + "\\fP"
        if tag == "bold":
            return "\\fB" + self.inline(elem) + "\\fP"
        if tag == "ref":
            name = "".join(elem.itertext())
            if name.startswith("oxa_") and name.endswith("()"):
                self.refs.add(name[:-2])
                return "\\fB" + escape(name[:-2]) + "\\fP(3)"
            return "\\fB" + escape(name) + "\\fP"
        if tag == "itemizedlist":
            items = []
            for item in elem.findall("listitem"):
                items.append("\n.IP \\(bu 2\n" + self.paragraphs(item))
            return "".join(items) + "\n.PP\n"
        if tag == "programlisting":
            return "\n" + self.code(elem) + "\n"
        if tag in ("parameterlist", "simplesect"):
            return ""  # sections of their own
        if tag == "para":
            return self.inline(elem)
        return self.inline(elem)

    def paragraphs(self, elem):
        """The paragraphs of a description, without its parameter and return lists."""
        parts = [self.inline(para).strip() for para in elem.findall("para")]
        return "\n.PP\n".join(part for part in parts if part)

    def code(self, listing):
        lines = []
        for codeline in listing.findall("codeline"):
            text = ""
            for node in codeline.iter():
                if node.tag == "sp":
                    text += " "
                if node is not codeline and node.text and node.tag != "sp":
                    text += node.text
                if node is not codeline and node.tail:
                    text += node.tail
            lines.append(escape(text))
        return ".PP\n.in +4n\n.EX\n" + line_start_safe("\n".join(lines)) + "\n.EE\n.in\n.PP"


def find_simplesects(elem, kind):
    return [s for s in elem.iter("simplesect") if s.get("kind") == kind]


def parameters(renderer, elem):
    items = []
    for item in elem.iter("parameteritem"):
        names = [escape("".join(n.itertext())) for n in item.iter("parametername")]
        desc = item.find("parameterdescription")
        items.append((", ".join(names), renderer.paragraphs(desc)))
    return items


class Header:
    """The declarations of oxa.h, as Doxygen read them."""

    def __init__(self, xml_dir):
        compound = ET.parse(os.path.join(xml_dir, "oxa_8h.xml")).getroot().find("compounddef")
        self.compound = compound
        self.functions = {}
        self.typedefs = {}
        self.enums = {}
        for member in compound.iter("memberdef"):
            name = member.findtext("name")
            kind = member.get("kind")
            if kind == "function":
                self.functions[name] = member
            elif kind == "typedef":
                self.typedefs[name] = member
            elif kind == "enum":
                self.enums[name] = member
        self.sections = {}
        for sect in find_simplesects(compound.find("detaileddescription"), "par"):
            self.sections[sect.findtext("title")] = sect

    def section(self, start):
        """The file comment's @par section whose title starts with `start`; every page needs it."""
        for title_text, sect in self.sections.items():
            if title_text.startswith(start):
                return sect
        sys.exit(f"gen-man: oxa.h has no @par section titled \"{start}...\"")


def prototype(member):
    return f"{member.findtext('type')} {member.findtext('name')}{member.findtext('argsstring')};"


def typedef_prototype(member):
    return member.findtext("definition") + ";"


def callback_types(header, function):
    used = []
    for param in function.findall("param"):
        type_name = "".join(param.find("type").itertext()).strip()
        if type_name in header.typedefs and type_name.endswith("_cb"):
            used.append(type_name)
    return used


def section_text(renderer, sect):
    parts = [renderer.inline(p).strip() for p in sect.findall("para")]
    return "\n.PP\n".join(p for p in parts if p)


def title(name, section, version):
    return f'.TH {escape(name)} {section} "" "liboxa {version}" "{MANUAL}"\n'


def synopsis(lines, language="c"):
    del language
    return ".SH SYNOPSIS\n.nf\n" + line_start_safe("\n".join(escape(l) for l in lines)) + "\n.fi\n"


def example_section(examples_dir, name):
    path = os.path.join(examples_dir, name + ".c")
    if not os.path.exists(path):
        return ""
    with open(path, encoding="utf-8") as source:
        code = escape(source.read().rstrip("\n"))
    return ".SH EXAMPLE\n.in +4n\n.EX\n" + line_start_safe(code) + "\n.EE\n.in\n"


def see_also(names):
    entries = [f".BR {escape(n)} (3)" for n in sorted(names)] + [".BR oxa (7)"]
    return ".SH SEE ALSO\n" + ",\n".join(entries) + "\n"


def function_page(header, name, examples_dir, version):
    member = header.functions[name]
    renderer = Renderer()
    brief = renderer.paragraphs(member.find("briefdescription"))
    detailed = member.find("detaileddescription")
    page = title(name, 3, version)
    page += ".SH NAME\n" + escape(name) + " \\- " + brief.rstrip(".") + "\n"
    callbacks = callback_types(header, member)
    lines = ["#include <oxa.h>", ""]
    lines += [typedef_prototype(header.typedefs[c]) for c in callbacks]
    if callbacks:
        lines.append("")
    lines.append(prototype(member))
    page += synopsis(lines)
    page += ".PP\nLink with \\fI\\-loxa\\fP (\\fBpkg\\-config \\-\\-libs oxa\\fP).\n"
    description = renderer.paragraphs(detailed)
    page += ".SH DESCRIPTION\n" + brief + "\n"
    if description:
        page += ".PP\n" + description + "\n"
    params = parameters(renderer, detailed)
    if params:
        page += ".SH ARGUMENTS\n"
        for pname, pdesc in params:
            page += f".TP\n.I {pname}\n{pdesc}\n"
    for callback in callbacks:
        typedef = header.typedefs[callback]
        page += ".SH CALLBACK " + escape(callback) + "\n"
        page += renderer.paragraphs(typedef.find("briefdescription")) + "\n"
        more = renderer.paragraphs(typedef.find("detaileddescription"))
        if more:
            page += ".PP\n" + more + "\n"
        for pname, pdesc in parameters(renderer, typedef.find("detaileddescription")):
            page += f".TP\n.I {pname}\n{pdesc}\n"
        for ret in find_simplesects(typedef.find("detaileddescription"), "return"):
            page += ".TP\nreturns\n" + renderer.paragraphs(ret) + "\n"
    page += ".SH RETURN VALUE\n"
    returns = "".join(renderer.paragraphs(ret) + "\n" for ret in find_simplesects(detailed, "return"))
    page += returns
    # The page's SEE ALSO names what this function's own text refers to, not the shared sections.
    shared = Renderer()
    requests = header.section("Requests")
    if "request error" in returns or returns.startswith("as "):
        page += ".PP\n" + section_text(shared, requests) + "\n"
    for heading, key in (("OWNERSHIP", "Ownership"), ("THREADS", "Threads")):
        page += f".SH {heading}\n" + section_text(shared, header.section(key)) + "\n"
    page += example_section(examples_dir, name)
    related = renderer.refs | {n for n in counterparts(name) if n in header.functions}
    related.discard(name)
    page += see_also(related)
    return page


# The functions that undo or pair with one another.
PAIRS = [("_create", "_destroy"), ("oxa_set_", "oxa_unset_"), ("_set_state_changed_cb",
         "_unset_state_changed_cb"), ("oxa_start_", "oxa_stop_"), ("_register", "_unregister"),
         ("oxa_initialize", "oxa_deinitialize")]


# Getters point back to where their object comes from.
SOURCES = {"oxa_command_get_": ["oxa_command_create"],
           "oxa_device_get_": ["oxa_device_clone", "oxa_get_my_device", "oxa_set_device_found_cb"]}


def counterparts(name):
    found = {source for prefix, sources in SOURCES.items() if name.startswith(prefix)
             for source in sources}
    for one, other in PAIRS:
        if one in name:
            found.add(name.replace(one, other, 1))
        if other in name:
            found.add(name.replace(other, one, 1))
    return found


def overview_page(header, hpp_xml, examples_dir, version):
    renderer = Renderer()
    compound = header.compound
    page = title("OXA", 7, version)
    page += ".SH NAME\noxa \\- " + renderer.paragraphs(compound.find("briefdescription")).rstrip(".")
    page += "\n"
    page += synopsis(["#include <oxa.h>      /* C */", "#include <oxa.hpp>    /* C++17 */", "",
                      "pkg-config --cflags --libs oxa glib-2.0",
                      "find_package(oxa 3 REQUIRED)   # CMake: target oxa::oxa"])
    page += ".SH DESCRIPTION\n" + renderer.paragraphs(compound.find("detaileddescription")) + "\n"
    for heading, intro, names in TOPICS:
        page += f".SH {heading}\n{intro}\n"
        for name in names:
            brief = renderer.paragraphs(header.functions[name].find("briefdescription"))
            page += f".TP\n.BR {escape(name)} (3)\n{brief}\n"
    for heading, key in (("THREADS", "Threads"), ("REQUESTS", "Requests"),
                         ("OWNERSHIP", "Ownership"), ("LOGGING", "Logging")):
        page += f".SH {heading}\n" + section_text(renderer, header.section(key)) + "\n"
    page += ".SH ERRORS\n" + renderer.paragraphs(header.enums["oxa_error_e"].find(
        "briefdescription")) + "\n"
    for value in header.enums["oxa_error_e"].findall("enumvalue"):
        initializer = value.findtext("initializer").lstrip("= ")
        page += f".TP\n.BR {escape(value.findtext('name'))} \" ({escape(initializer)})\"\n"
        page += renderer.paragraphs(value.find("detaileddescription")) + "\n"
    if hpp_xml is not None:
        page += ".SH C++\n" + renderer.paragraphs(hpp_xml.find("briefdescription")) + "\n"
        page += ".PP\n" + renderer.paragraphs(hpp_xml.find("detaileddescription")) + "\n"
    page += example_section(examples_dir, "oxa")
    page += ".SH SEE ALSO\n.BR oxa\\-agent\\-sim (1),\n"
    page += ",\n".join(f".BR {escape(n)} (3)" for _, _, names in TOPICS for n in names) + "\n"
    return page


def main():
    xml_dir, examples_dir, out_dir, version = sys.argv[1:5]
    header = Header(xml_dir)
    presented = {name for _, _, names in TOPICS for name in names}
    missing = sorted(set(header.functions) - presented)
    unknown = sorted(presented - set(header.functions))
    if missing or unknown:
        sys.exit(f"gen-man: overview topics out of step with oxa.h: missing {missing}, "
                 f"unknown {unknown}")
    hpp_path = os.path.join(xml_dir, "oxa_8hpp.xml")
    hpp_xml = None
    if os.path.exists(hpp_path):
        hpp_xml = ET.parse(hpp_path).getroot().find("compounddef")
    os.makedirs(os.path.join(out_dir, "man3"), exist_ok=True)
    os.makedirs(os.path.join(out_dir, "man7"), exist_ok=True)
    for name in header.functions:
        with open(os.path.join(out_dir, "man3", name + ".3"), "w", encoding="utf-8") as page:
            page.write(function_page(header, name, examples_dir, version))
    with open(os.path.join(out_dir, "man7", "oxa.7"), "w", encoding="utf-8") as page:
        page.write(overview_page(header, hpp_xml, examples_dir, version))


if __name__ == "__main__":
    main()
