"""Draws the weather file of the demo: daily temperatures and monthly rain. Usage: plot-weather.py WEATHER.h5 PICTURE"""
import sys

import h5py
import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt
import numpy as np

with h5py.File(sys.argv[1]) as file:
    days = file["/stations/seattle/days"][:]

dates = days["date"].astype("datetime64[D]")
months = dates.astype("datetime64[M]")
figure, (temperature, rain) = plt.subplots(2, 1, sharex=True, figsize=(8, 4.5), layout="constrained")
temperature.fill_between(dates, days["temp_min"], days["temp_max"], color="tab:red", alpha=0.6, linewidth=0)
temperature.set_ylabel("temperature (°C)")
each_month = np.unique(months)
rain.bar(each_month.astype("datetime64[D]"), [days["precipitation"][months == month].sum() for month in each_month],
         width=25, color="tab:blue", align="edge")
rain.set_ylabel("rain in the month (mm)")
temperature.set_title("Seattle, daily lowest to highest temperature, and rain")
for axes in (temperature, rain):
    axes.spines[["top", "right"]].set_visible(False)
figure.savefig(sys.argv[2], dpi=80)
