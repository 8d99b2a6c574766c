// Replaced by the frame and tile decoders.
