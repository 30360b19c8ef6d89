#!/usr/bin/env python3
"""Prints the controller's serial number."""

print("SN24711003")
