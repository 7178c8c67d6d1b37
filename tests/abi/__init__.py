"""The library as a host sees it: nine C functions that carry JSON."""
