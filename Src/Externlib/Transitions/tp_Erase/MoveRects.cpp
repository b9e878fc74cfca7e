// The registered moving rectangles.
