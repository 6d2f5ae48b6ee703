#!/usr/bin/python3
"""Drives the console's page in headless Chromium (selenium + chromedriver).

Usage: browser_check.py URL SCREENSHOT_DIR

Loads the page, checks both channels show, starts channel 100 from the page,
sees the record-start event, waits for a roll-over, finds a finished file of
channel 100 in the list with its thumbnail, plays it past 2 s without a media
error, seeks to the middle, locks it. A screenshot of each state goes to
SCREENSHOT_DIR. Prints "LOCKED <id>" for the caller to check the catalog.
Exit status: 0 passed, 1 failed (the reason on stderr), 77 Chromium cannot
start here.
"""
import os
import sys
import time

SKIP = 77


def fail(message):
    print("FAILED: " + message, file=sys.stderr)
    sys.exit(1)


def start_browser():
    try:
        from selenium import webdriver
        from selenium.webdriver.chrome.service import Service
    except ImportError as error:
        fail("python3-selenium is not installed (scripts/install-deps): %s" % error)
    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                     "--mute-audio", "--autoplay-policy=no-user-gesture-required",
                     "--window-size=1400,1200"):
        options.add_argument(argument)
    try:
        return webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
    except Exception as error:  # any failure to start is a skip, with the reason
        print("SKIP: Chromium cannot start: %s" % str(error).splitlines()[0])
        sys.exit(SKIP)


def wait_until(what, check, seconds):
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        value = check()
        if value:
            return value
        time.sleep(0.2)
    fail("timed out after %d s waiting for %s" % (seconds, what))


def main():
    if len(sys.argv) != 3:
        print(__doc__, file=sys.stderr)
        return 2
    url, shots = sys.argv[1], sys.argv[2]
    os.makedirs(shots, exist_ok=True)
    driver = start_browser()
    try:
        run(driver, url, shots)
    finally:
        driver.quit()
    return 0


def run(driver, url, shots):
    from selenium.webdriver.common.by import By

    def shot(name):
        driver.save_screenshot(os.path.join(shots, name + ".png"))

    def script(code, *arguments):
        return driver.execute_script(code, *arguments)

    driver.get(url)
    wait_until("both channel cards",
               lambda: len(driver.find_elements(By.CSS_SELECTOR, ".channel-card")) == 2, 30)
    encs = [card.get_attribute("data-enc")
            for card in driver.find_elements(By.CSS_SELECTOR, ".channel-card")]
    if encs != ["100", "101"]:
        fail("channel cards %s, expected 100 and 101" % encs)
    wait_until("the service connected",
               lambda: "connected" in driver.find_element(By.ID, "service-state").text, 30)
    shot("01-loaded")

    driver.find_element(By.CSS_SELECTOR, '.channel-card[data-enc="100"] button.start').click()
    wait_until("the record-start event",
               lambda: driver.find_elements(By.CSS_SELECTOR, "#events li.record-start"), 30)
    starts = driver.find_elements(By.CSS_SELECTOR, "#events li.record-start")
    if len(starts) != 1 or "channel 100" not in starts[0].text:
        fail("record-start events: %s" % [item.text for item in starts])
    wait_until("the card to show recording",
               lambda: driver.find_element(
                   By.CSS_SELECTOR, '.channel-card[data-enc="100"] .state').text == "recording", 10)
    shot("02-recording")

    wait_until("a roll-over (record-finish)",
               lambda: driver.find_elements(By.CSS_SELECTOR, "#events li.record-finish"), 60)
    ids = script("return [...document.querySelectorAll('#events li')].map(li => +li.dataset.id)")
    if len(ids) != len(set(ids)) or ids != sorted(ids, reverse=True):
        fail("events not each once, newest first: %s" % ids)

    def finished_row():
        return script("""
            for (const row of document.querySelectorAll('#recordings tbody tr.playable')) {
              const cells = row.querySelectorAll('td');
              const thumb = row.querySelector('img.thumb');
              if (cells[2].textContent === '100' && thumb && thumb.complete &&
                  thumb.naturalWidth > 0) {
                return row.dataset.id;
              }
            }
            return null;""")
    row_id = wait_until("a finished file of channel 100 with its thumbnail", finished_row, 60)
    shot("03-listed")

    driver.find_element(By.CSS_SELECTOR, '#recordings tr[data-id="%s"]' % row_id).click()

    def playing_past_two_seconds():
        state = script("const v = document.getElementById('player');"
                       "return [v.currentTime, v.error ? v.error.code : 0, v.duration];")
        if state[1]:
            fail("the player reported media error %s" % state[1])
        return state[0] > 2.0 and state
    state = wait_until("the video to play past 2 s", playing_past_two_seconds, 30)
    shot("04-playing")

    duration = state[2]
    middle = duration / 2
    script("const v = document.getElementById('player'); v.dataset.seeked = '0';"
           "v.addEventListener('seeked', () => { v.dataset.seeked = '1'; }, {once: true});"
           "v.currentTime = arguments[0];", middle)
    wait_until("the seek to the middle",
               lambda: script("return document.getElementById('player').dataset.seeked") == "1", 20)
    position = script("return document.getElementById('player').currentTime")
    if abs(position - middle) > 1.0:
        fail("seeked to %.2f s, asked for %.2f s" % (position, middle))
    if script("return document.getElementById('player').error"):
        fail("media error after the seek")
    shot("05-seeked")

    lock = driver.find_element(By.CSS_SELECTOR, '#recordings tr[data-id="%s"] button.lock' % row_id)
    lock.click()
    wait_until("the lock to show",
               lambda: driver.find_element(
                   By.CSS_SELECTOR, '#recordings tr[data-id="%s"] button.lock' % row_id).text
               == "Locked", 10)
    shot("06-locked")
    print("LOCKED %s" % row_id)
    print("PLAYED %.2f s of %.2f s, seeked to %.2f s" % (state[0], duration, position))


if __name__ == "__main__":
    sys.exit(main())
