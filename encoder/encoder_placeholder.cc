// Replaced by the frame and tile encoders.
