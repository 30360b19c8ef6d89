"""Long runs of the service under disturbances. Each module but report is one of them; scripts/soak starts them."""
