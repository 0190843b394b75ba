"""The library's message texts, and the constants that name them.

    PYTHONPATH=build/python /usr/bin/python3 examples/python/messages.py
"""

import tessaly


def main():
    dictionary = tessaly.CreateObject("Tessaly.LuxDictionary")
    constants = tessaly.constants
    print("language:", dictionary.LanguageAbbrev)

    # Message IDs are enumeration members; FormatString fills in %1 %2 %3 (all optional).
    print(dictionary.FormatString(constants.ids_Lux_InvalidArgNull_1, "Width"))
    print(dictionary.GetString(constants.e_LuxCollection_KeyNotFound))

    # Properties whose arguments are all optional read with their defaults.
    print("font:", dictionary.FontName)

    # An unknown message ID is refused.
    try:
        dictionary.GetString(12345)
    except tessaly.ComError as error:
        print("refused:", error.description)


if __name__ == "__main__":
    main()
