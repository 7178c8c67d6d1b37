"""A file-chooser portal on the session bus that answers one request.

Its arguments are the file that it records the request in, and its behaviour:

    answer CODE [ADDRESS]   responds, with the address of the file chosen, after the call's return
    early CODE [ADDRESS]    responds before the call has returned
    refuse                  fails the call
    vanish                  exits before it has responded
    junk                    sends a malformed response

It prints "ready" when it can be called.
"""

import json
import sys

import dbus
import dbus.lowlevel
import dbus.mainloop.glib
import dbus.service
from gi.repository import GLib

NAME = "org.freedesktop.portal.Desktop"
PATH = "/org/freedesktop/portal/desktop"
REQUEST = PATH + "/request/1_1/a"
OTHER_REQUEST = PATH + "/request/1_2/b"


class Portal(dbus.service.Object):
    def __init__(self, bus, loop, notes, behaviour, arguments):
        super().__init__(bus, PATH)
        self.loop = loop
        self.notes = notes
        self.behaviour = behaviour
        self.arguments = arguments

    @dbus.service.method(
        "org.freedesktop.portal.FileChooser",
        in_signature="ssa{sv}",
        out_signature="o",
        sender_keyword="sender",
        byte_arrays=True,
    )
    def SaveFile(self, window, title, options, sender=None):
        with open(self.notes, "w", encoding="utf-8") as file:
            json.dump([window, title, plain(options)], file)
        if self.behaviour == "refuse":
            raise dbus.DBusException("No dialogs here.", name=NAME + ".Refused")
        if self.behaviour == "early":
            self.respond(sender)
        else:
            GLib.timeout_add(50, self.respond, sender)
        return dbus.ObjectPath(REQUEST)

    def respond(self, sender):
        if self.behaviour == "vanish":
            self.loop.quit()
        elif self.behaviour == "junk":
            self.signal(sender, REQUEST, "s", "text")
        else:
            code, *addresses = self.arguments
            self.signal(sender, OTHER_REQUEST, "ua{sv}", dbus.UInt32(1), {})
            uris = dbus.Array(addresses, signature="s")
            results = {"choices": dbus.Array([], signature="(ss)"), "uris": uris}
            self.signal(sender, REQUEST, "ua{sv}", dbus.UInt32(int(code)), results)
        return False

    def signal(self, receiver, path, signature, *values):
        message = dbus.lowlevel.SignalMessage(path, "org.freedesktop.portal.Request", "Response")
        message.set_destination(receiver)
        message.append(*values, signature=signature)
        self.connection.send_message(message)


def plain(value):
    """A D-Bus value as a value for JSON."""
    if isinstance(value, dict):
        return {str(key): plain(item) for key, item in value.items()}
    if isinstance(value, bytes):
        return value.decode("utf-8")
    if isinstance(value, (tuple, list)):
        return [plain(item) for item in value]
    return int(value) if isinstance(value, int) else str(value)


def main():
    notes, behaviour, *arguments = sys.argv[1:]
    dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
    loop = GLib.MainLoop()
    bus = dbus.SessionBus()
    name = dbus.service.BusName(NAME, bus)
    portal = Portal(bus, loop, notes, behaviour, arguments)
    print("ready", flush=True)
    loop.run()
    del name, portal


main()
