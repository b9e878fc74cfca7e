// Triangles and rings, exported by name only.
