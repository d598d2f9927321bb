// The library starts with this file; each port fake stands in a file of its own.
