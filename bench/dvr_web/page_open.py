#!/usr/bin/python3
"""Keeps the console's page open in headless Chromium for a while.

Usage: page_open.py URL SECONDS
Prints "open" once both channel cards show, then waits SECONDS and closes.
"""
import sys
import time

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By


def main():
    url, seconds = sys.argv[1], float(sys.argv[2])
    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                     "--mute-audio"):
        options.add_argument(argument)
    driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
    try:
        driver.get(url)
        deadline = time.monotonic() + 30
        while len(driver.find_elements(By.CSS_SELECTOR, ".channel-card")) < 2:
            if time.monotonic() > deadline:
                print("the page did not show the channels", file=sys.stderr)
                return 1
            time.sleep(0.2)
        print("open", flush=True)
        time.sleep(seconds)
    finally:
        driver.quit()
    return 0


if __name__ == "__main__":
    sys.exit(main())
