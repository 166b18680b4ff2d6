#!/usr/bin/env python3
"""Verifies a passport from Python, through the library's C interface: verify.py FOLDER SELFIE [LIBRARY]

LIBRARY is libtavlo_c.so.0 unless it is named. A service with a certificate of its own, such as tavlo-sandbox, is
trusted by SSL_CERT_FILE=ca.pem.
"""

import ctypes
import pathlib
import queue
import sys

COMPLETION = ctypes.CFUNCTYPE(
    None, ctypes.c_void_p, ctypes.POINTER(ctypes.c_uint8), ctypes.c_size_t, ctypes.c_void_p)


class TavloError(Exception):
    def __init__(self, library, error):
        super().__init__(library.tavlo_error_message(error).decode())
        self.kind = library.tavlo_error_kind_of(error)
        self.code = library.tavlo_error_code(error)


class Handle:
    """What the library gives away: freed with the Python object."""

    def __init__(self, pointer, free):
        self._as_parameter_, self._free = ctypes.c_void_p(pointer), free

    def __del__(self):
        self._free(self._as_parameter_)


class Tavlo:
    def __init__(self, path):
        self._library = ctypes.CDLL(path)
        self._library.tavlo_error_message.restype = ctypes.c_char_p
        for name in ("error_message", "error_kind_of", "error_code", "error_free", "model_free", "document_free",
                     "image_free"):
            getattr(self._library, "tavlo_" + name).argtypes = [ctypes.c_void_p]
        self._library.tavlo_verify.restype = None
        self._library.tavlo_verify.argtypes = [ctypes.c_void_p] * 3 + [COMPLETION, ctypes.c_void_p]
        self._library.tavlo_silence.restype = ctypes.c_bool

    def _make(self, kind, function, *arguments):
        """Calls a function that gives a handle back or sets an error."""
        call = getattr(self._library, function)
        call.restype = ctypes.c_void_p
        error = ctypes.c_void_p()
        pointer = call(*arguments, ctypes.byref(error))
        if not pointer:
            try:
                raise TavloError(self._library, error)
            finally:
                self._library.tavlo_error_free(error)
        return Handle(pointer, getattr(self._library, f"tavlo_{kind}_free"))

    def silence(self):
        self._library.tavlo_silence(None)

    def read(self, folder):
        return self._make("model", "tavlo_model_read_folder", str(folder).encode())

    def passport(self, model):
        return self._make("document", "tavlo_passport_create", model)

    def image(self, data):
        return self._make("image", "tavlo_image_decode", data, ctypes.c_size_t(len(data)))

    def verify(self, model, passport, selfie):
        """Waits for the answer, and gives its bytes."""
        outcome = queue.SimpleQueue()

        @COMPLETION
        def complete(_, answer, length, error):  # mostly on the session's thread; its arguments end with the call
            outcome.put(TavloError(self._library, error) if error else ctypes.string_at(answer, length))

        self._library.tavlo_verify(model, passport, selfie, complete, None)
        result = outcome.get()
        if isinstance(result, TavloError):
            raise result
        return result


def main():
    folder, selfie, *library = sys.argv[1:]
    tavlo = Tavlo(library[0] if library else "libtavlo_c.so.0")
    tavlo.silence()  # The library's console lines hold personal data.
    try:
        model = tavlo.read(folder)
        picture = tavlo.image(pathlib.Path(selfie).read_bytes())
        print(tavlo.verify(model, tavlo.passport(model), picture).decode())
    except (TavloError, OSError) as error:
        sys.exit(str(error))


if __name__ == "__main__":
    main()
