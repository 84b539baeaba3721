// File and key of the device's image sensor.
#pragma once

constexpr char VIDEO_SOURCE_PATH[] = "/etc/videosource.conf";
constexpr char VIDEO_SOURCE_SENSOR_KEY[] = "VideoSource.1.Dev";
