"""A first look at the tessaly module: make a collection, fill it, read it back.

    PYTHONPATH=build/python /usr/bin/python3 examples/python/collection_basics.py
"""

import tessaly


def main():
    settings = tessaly.CreateObject("Tessaly.LuxCollection")

    # Methods: optional arguments may be left out, or given by name.
    settings.Add(640, "width")
    settings.Add(480, "height")
    settings.Add("mono8", Key="format")
    settings.Add(2.2)  # no key

    # Properties, and properties with indices: keys in any case, or 0-based indices.
    print(f"{settings.Count} settings: {list(settings)}")
    print("width:", settings.Item["width"], "height:", settings["HEIGHT"], "first key:", settings.Key[0])
    settings["width"] = 1280
    print("width is now", settings["width"], "at index", settings.FindKey("width"))
    print("no depth:", settings.FindKey("depth") == tessaly.constants.luxNoIndex)

    # A refusal is a ComError with the library's code and description.
    try:
        settings.Item[10]
    except tessaly.ComError as error:
        code = error.hresult & 0xFFFFFFFF
        print(f"refused by {error.source}: {error.description.splitlines()[0]} ({code:#010x})")

    # help() and the doc strings come from the type library.
    print("help:", settings.Add.__doc__.splitlines()[0])


if __name__ == "__main__":
    main()
