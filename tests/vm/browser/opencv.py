#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""opencv.py NODE FILE: capture by OpenCV: thirty decoded MJPEG pictures, the last of them written as
FILE.png, then twenty YUYV frames as they come, written to FILE.raw. Says what came."""
import sys

import cv2

node, name = sys.argv[1:]


def capture(fourcc, rate, count, raw):
    """The frames of one stream."""
    webcam = cv2.VideoCapture(node, cv2.CAP_V4L2)
    webcam.set(cv2.CAP_PROP_FOURCC, cv2.VideoWriter_fourcc(*fourcc))
    webcam.set(cv2.CAP_PROP_FRAME_WIDTH, 640)
    webcam.set(cv2.CAP_PROP_FRAME_HEIGHT, 480)
    webcam.set(cv2.CAP_PROP_FPS, rate)
    webcam.set(cv2.CAP_PROP_CONVERT_RGB, 0 if raw else 1)
    frames = []
    for _ in range(count):
        good, frame = webcam.read()
        if not good:
            sys.exit(f'{fourcc}: no frame after {len(frames)}')
        frames.append(frame.copy())
    webcam.release()
    return frames


pictures = capture('MJPG', 30, 30, False)
cv2.imwrite(name + '.png', pictures[-1])
different = len({picture.tobytes() for picture in pictures})
print(f'MJPG {pictures[0].shape[1]}x{pictures[0].shape[0]}: {len(pictures)} pictures, '
      f'{different} different')
if pictures[0].shape != (480, 640, 3) or different < 20:
    sys.exit(1)
frames = capture('YUYV', 15, 20, True)
with open(name + '.raw', 'wb') as file:
    for frame in frames:
        file.write(frame.tobytes())
print(f'YUYV: {len(frames)} frames of {frames[0].nbytes} bytes')
