// Shader-style transitions: geometry per pixel in floating point.
