// Where the device says which image sensor it has.
#pragma once

constexpr char VIDEO_SOURCE_PATH[] = "/etc/videosource.conf";
constexpr char VIDEO_SOURCE_SENSOR_KEY[] = "VideoSource.1.Dev";
