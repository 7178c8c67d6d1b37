"""The library as a host uses it: nine C functions that exchange JSON."""
