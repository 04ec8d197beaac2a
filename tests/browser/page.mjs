// page.mjs PAGE EFFECTS [PICTURE] - opens the page of the demo in Chromium and uses it as a person would.
import assert from "node:assert/strict";
import {existsSync, statSync} from "node:fs";
import {resolve} from "node:path";
import puppeteer from "puppeteer-core";

const [file, effects, picture] = process.argv.slice(2);
const OPENING_LIMIT_MS = 2000;
const SIZE_LIMIT = 1 << 20; // beside its data

const browser = await puppeteer.launch({
    executablePath: ["/usr/bin/chromium", "/usr/bin/chromium-browser"].find(existsSync),
    args: ["--disable-gpu", "--disable-dev-shm-usage", ...(process.getuid() === 0 ? ["--no-sandbox"] : [])],
});
try {
    const page = await browser.newPage();
    const errors = [];
    page.on("pageerror", (error) => errors.push(String(error)));
    page.on("console", (message) => message.type() === "error" && errors.push(message.text()));
    page.on("request", (request) => request.url().startsWith("file:") || errors.push("asks " + request.url()));
    await page.setViewport({width: 1360, height: 860});
    const begun = performance.now();
    await page.goto("file://" + resolve(file));
    await page.waitForFunction("window.page !== undefined");
    const opening = Math.round(performance.now() - begun);

    assert.equal(await page.evaluate("page.effects"), Number(effects), "effects of the page and of the trace");
    const dataSize = await page.$eval("#data", (data) => data.textContent.length);
    assert.ok(statSync(file).size - dataSize < SIZE_LIMIT, "size of the page beside its data");
    assert.ok(opening < OPENING_LIMIT_MS, `opened in ${opening} ms`);

    // Something is drawn: more than a ground and a frame.
    const colours = () => page.$eval("#canvas", (canvas) => {
        const pixels = canvas.getContext("2d").getImageData(0, 0, canvas.width, canvas.height).data;
        const seen = new Set();
        for (let i = 0; i < pixels.length; i += 4)
            seen.add((pixels[i] << 16) | (pixels[i + 1] << 8) | pixels[i + 2]);
        return seen.size;
    });
    assert.ok(await colours() > 40, "colours on the canvas");

    // Search finds the tent, twice in the thermal words of the day.
    await page.focus("#canvas");
    await page.keyboard.press("/");
    await page.keyboard.type("hinge: tent, acc");
    assert.equal(await page.$eval("#found", (found) => found.textContent), "2 found");

    // The wheel zooms in on it.
    const [tent] = await page.evaluate(`page.find("hinge: tent, accepted")`);
    await page.keyboard.press("Escape");
    await page.keyboard.press("Escape"); // nothing is selected
    for (let turn = 0; turn < 6; ++turn) {
        const at = await page.evaluate((i) => page.where(i), tent);
        await page.mouse.move(at.x, at.y);
        await page.mouse.wheel({deltaY: -240});
        await page.evaluate(() => new Promise(requestAnimationFrame));
    }
    assert.ok(await page.evaluate("page.zoom()") > 4, "zoom after six turns of the wheel");

    // A click on it shows its words and what caused it.
    const at = await page.evaluate((i) => page.where(i), tent);
    await page.mouse.click(at.x, at.y);
    const details = await page.$eval("#details", (section) => section.innerText);
    assert.match(details, /DYTC\(0x113001\) = 0x1/);
    assert.match(details, /hinge: tent, accepted/);
    assert.match(details, /because of\s+event 0x60C0 transformation changed/);

    // By keyboard: on to the next event from outside, behind the firmware's answer; it names what it led to.
    await page.focus("#canvas");
    await page.keyboard.down("Shift");
    await page.keyboard.press("ArrowRight");
    await page.keyboard.press("ArrowRight");
    await page.keyboard.up("Shift");
    assert.match(await page.$eval("#details", (section) => section.innerText), /led to[^]*stand/);

    // Real time, and back to the whole run; the dark scheme draws too.
    await page.keyboard.press("f");
    assert.equal(await page.$eval("#fold", (fold) => fold.getAttribute("aria-pressed")), "false");
    await page.keyboard.press("f");
    await page.keyboard.press("0");
    assert.equal(await page.evaluate("page.zoom()"), 1);
    await page.emulateMediaFeatures([{name: "prefers-color-scheme", value: "dark"}]);
    await page.evaluate(() => new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(done))));
    assert.ok(await colours() > 40, "colours on the canvas in the dark");
    assert.deepEqual(errors, []);

    if (picture) {
        await page.emulateMediaFeatures([{name: "prefers-color-scheme", value: "light"}]);
        for (let turn = 0; turn < 5; ++turn) {
            const at = await page.evaluate((i) => page.where(i), tent);
            await page.mouse.move(at.x, at.y);
            await page.mouse.wheel({deltaY: -240});
            await page.evaluate(() => new Promise(requestAnimationFrame));
        }
        const at = await page.evaluate((i) => page.where(i), tent);
        await page.mouse.click(at.x, at.y);
        await page.evaluate(() => new Promise((done) => setTimeout(done, 100)));
        await page.screenshot({path: picture});
    }
    console.log(`page: ${effects} effects, opened in ${opening} ms`);
} finally {
    await browser.close();
}
