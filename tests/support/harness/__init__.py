"""What end-to-end tests are made of: buses, the daemon, its engine, its clients and its peers.

Everything here runs inside the sandbox of tests/support/sandbox.py, in one test process.
"""
