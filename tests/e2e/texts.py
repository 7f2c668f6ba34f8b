"""The messages that the tests expect on standard output, as bytes and whole."""


def message(number, text):
    return f"TWNFS-{number:05}: {text}\n".encode()


SUCCEEDED = message(65023, "The command completed successfully.")
UNUSABLE = message(65024, "The operands could not be used; nothing was processed.")


def failed(status):
    return message(65022, f"The command failed with status {status}.")


def exists(path):
    return message(65018, f"The file {path} already exists.")


def not_a_directory(path):
    """The remark that every type test of a remote non-directory leaves, without a line feed."""
    return f"{path} not a directory".encode()


def copy_banner(source, destination):
    return f"COPY {source} to {destination}: \n".encode()


def banner(word, path):
    return f"{word} {path} : \n".encode()


NO_CATALOGUE = b"error in getting message from message file\n"
