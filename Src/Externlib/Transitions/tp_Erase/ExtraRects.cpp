// The moving rectangles exported by name only.
