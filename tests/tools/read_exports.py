#!/usr/bin/env python3
# Reads the exports of one room with readers other than Halden's (tomllib, PyYAML, an XML
# parser, json), rebuilds every camera's pose in the room file's own axes from the axes
# each format states, and prints the largest difference from the room file.
# Usage: read_exports.py ROOM OPENCV_YAML TOML ROS2_LAUNCH MATRIX_JSON
import json
import math
import sys
import tomllib
import xml.etree.ElementTree as ElementTree

import yaml


def mul(a, b):
    return [[sum(a[i][k] * b[k][j] for k in range(len(b))) for j in range(len(b[0]))] for i in range(len(a))]


def transpose(a):
    return [list(row) for row in zip(*a)]


def apply(a, v):
    return [sum(a[i][k] * v[k] for k in range(3)) for i in range(3)]


def rodrigues(r):
    theta = math.sqrt(sum(x * x for x in r))
    if theta == 0:
        return [[1.0, 0.0, 0.0], [0.0, 1.0, 0.0], [0.0, 0.0, 1.0]]
    x, y, z = (c / theta for c in r)
    k = [[0, -z, y], [z, 0, -x], [-y, x, 0]]
    k2 = mul(k, k)
    s, c = math.sin(theta), 1 - math.cos(theta)
    return [[(i == j) + s * k[i][j] + c * k2[i][j] for j in range(3)] for i in range(3)]


def from_quaternion(x, y, z, w):
    return [[1 - 2 * (y * y + z * z), 2 * (x * y - z * w), 2 * (x * z + y * w)],
            [2 * (x * y + z * w), 1 - 2 * (x * x + z * z), 2 * (y * z - x * w)],
            [2 * (x * z - y * w), 2 * (y * z + x * w), 1 - 2 * (x * x + y * y)]]


# The room file's axes (x right, y down, z forward) against Halden's room (x right, y up,
# z back) and REP 103 (x forward, y left, z up).
FLIP = [[1, 0, 0], [0, -1, 0], [0, 0, -1]]
REP103 = [[0, 0, 1], [-1, 0, 0], [0, -1, 0]]


def from_room_to_camera(rotation, translation):
    """Camera-to-room in file axes, from a room (y up) to optical camera transform."""
    back = transpose(rotation)
    return mul(FLIP, back), [-v for v in apply(mul(FLIP, back), translation)]


def read_opencv(path):
    with open(path) as f:
        text = f.read()
    assert text.startswith("%YAML:1.0\n"), "FileStorage needs its own header line"
    loader = type("Loader", (yaml.SafeLoader,), {})
    loader.add_constructor("tag:yaml.org,2002:opencv-matrix", lambda l, node: l.construct_mapping(node, deep=True))
    document = yaml.load(text.split("\n", 1)[1], Loader=loader)
    poses = {}
    for serial in document["cameras"]:
        camera = document[f"camera_{serial}"]
        r, t = camera["R"], camera["T"]
        assert (r["rows"], r["cols"], r["dt"], t["rows"], t["cols"]) == (3, 3, "d", 3, 1)
        rotation = [r["data"][3 * i:3 * i + 3] for i in range(3)]
        poses[int(serial)] = from_room_to_camera(rotation, t["data"])
    return poses


def read_toml(path):
    with open(path, "rb") as f:
        document = tomllib.load(f)
    return {int(c["name"]): from_room_to_camera(rodrigues(c["rotation"]), c["translation"])
            for key, c in document.items() if key.startswith("cam_")}


def read_ros2(path):
    root = ElementTree.parse(path).getroot()
    assert root.tag == "launch"
    poses = {}
    for node in root.iter("node"):
        assert (node.get("pkg"), node.get("exec")) == ("tf2_ros", "static_transform_publisher")
        words = node.get("args").split()
        args = dict(zip(words[0::2], words[1::2]))
        assert args["--frame-id"] == "halden_world"
        x, y, z, qx, qy, qz, qw = (float(args["--" + k]) for k in ("x", "y", "z", "qx", "qy", "qz", "qw"))
        body = from_quaternion(qx, qy, qz, qw)
        rotation = mul(mul(transpose(REP103), body), REP103)
        poses[int(args["--child-frame-id"].removeprefix("camera_"))] = (rotation, apply(transpose(REP103), [x, y, z]))
    return poses


def read_matrix(path):
    with open(path) as f:
        document = json.load(f)
    assert document["units"] == "metres"
    poses = {}
    for camera in document["cameras"]:
        m = camera["cameraToRoom"]
        assert m[3] == [0, 0, 0, 1]
        poses[camera["serial"]] = (mul(FLIP, [row[:3] for row in m[:3]]), apply(FLIP, [row[3] for row in m[:3]]))
    return poses


def main():
    with open(sys.argv[1]) as f:
        room = {int(k): (rodrigues(c["world"]["rotation"]), c["world"]["translation"]) for k, c in json.load(f).items()}
    worst = 0.0
    for reader, path in zip((read_opencv, read_toml, read_ros2, read_matrix), sys.argv[2:6]):
        poses = reader(path)
        assert sorted(poses) == sorted(room), f"{path}: cameras {sorted(poses)}, room {sorted(room)}"
        for serial, (rotation, translation) in poses.items():
            want_rotation, want_translation = room[serial]
            error = max([abs(a - b) for ra, rb in zip(rotation, want_rotation) for a, b in zip(ra, rb)] +
                        [abs(a - b) for a, b in zip(translation, want_translation)])
            worst = max(worst, error)
            if error > 1e-9:
                print(f"{path}: camera {serial} is {error:g} off")
                return 1
    print(f"largest difference {worst:.3g}")
    return 0


sys.exit(main())
