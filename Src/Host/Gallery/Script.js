'use strict';

const runTime = 2000, restTime = 600; // milliseconds from A to B, and at either end
const pathTitles = {yuv: 'Planar (yuv)', rgb: 'Packed (rgb)'};

const find = id => document.getElementById(id);
const data = JSON.parse(find('data').textContent);
const last = data.steps - 1;
const calm = matchMedia('(prefers-reduced-motion: reduce)');

const state = {
    path: Object.keys(data.ends)[0],
    isReversed: false,
    easing: data.easings[0],
    kind: '',
    stop: Math.round(last * 0.44), // of the slider
    playingSince: null,            // all of them
};

// A view is a canvas that shows a transition; `since` is when it began to play by itself.
const views = [];
const large = {canvas: find('large-picture'), transition: null, since: null, isSeen: true};

// Pictures -----------------------------------------------------------------------------------

function takeOf(transition) {
    const takes = transition.takes[state.path];
    return takes && takes[state.isReversed ? 1 : 0];
}

/// Decodes a picture for those who want to draw from it; they are drawn again when it is there.
async function decode(holder) {
    if (holder.isWanted)
        return;
    holder.isWanted = true;
    const bytes = Uint8Array.from(atob(holder.picture), letter => letter.charCodeAt(0));
    const blob = new Blob([bytes], {type: 'image/webp'});
    holder.bitmap = await createImageBitmap(blob, {colorSpaceConversion: 'none', premultiplyAlpha: 'none'});
    if (holder.isWanted)
        drawAll();
    else
        release(holder);
}

function release(holder) {
    holder.bitmap?.close();
    holder.bitmap = null;
    holder.isWanted = false;
}

/// Pictures of other choices than the present ones need not stay in memory.
function releaseOthers() {
    for (const {takes} of data.transitions)
        for (const take of Object.values(takes).flat())
            if (!views.some(view => takeOf(view.transition) === take))
                release(take);
}

/// The frames that make a step, from below: one of the two ends, and the transition's own over it.
function framesOf(take, step) {
    const ends = data.ends[state.path], frame = take.steps[step];
    return frame < 0 ? [[ends, -1 - frame]] : [[ends, take.under[frame]], [take, frame]];
}

function draw(view, now) {
    const take = view.isSeen && view.transition && takeOf(view.transition);
    if (!take)
        return;
    const step = state.easing.steps[stopOf(view, now)], frames = framesOf(take, step);
    const missing = frames.filter(([holder]) => !holder.bitmap);
    missing.forEach(([holder]) => decode(holder));
    if (missing.length)
        return;
    const {width, height} = data, context = view.canvas.getContext('2d');
    for (const [holder, frame] of frames)
        context.drawImage(holder.bitmap, 0, frame * height, width, height, 0, 0, width, height);
    view.canvas.dataset.shown = [state.path, state.isReversed ? 'reversed' : 'forward', step].join(' ');
}

function drawAll(now = performance.now()) {
    for (const view of [...views, large])
        draw(view, now);
}

// Time ---------------------------------------------------------------------------------------

function stopAt(time) {
    const run = (time % (runTime + 2 * restTime) - restTime) / runTime;
    return Math.round(Math.min(Math.max(run, 0), 1) * last);
}

function stopOf(view, now) {
    const since = view.since ?? (view === large ? null : state.playingSince);
    return since === null ? state.stop : stopAt(now - since);
}

let isTicking = false;

function tick(now) {
    isTicking = false;
    drawAll(now);
    showPosition(now);
    if (state.playingSince !== null || large.since !== null || views.some(view => view.since !== null))
        keepTicking();
}

function keepTicking() {
    if (!isTicking)
        requestAnimationFrame(tick);
    isTicking = true;
}

function setPosition(name, stop) {
    const text = Math.round(100 * stop / last) + ' %';
    find(name + 'slider').value = stop;
    find(name + 'slider').setAttribute('aria-valuetext', text);
    find(name + 'position').textContent = text;
}

function showPosition(now = performance.now()) {
    setPosition('', state.playingSince === null ? state.stop : stopAt(now - state.playingSince));
    setPosition('large-', stopOf(large, now));
    find('play').textContent = state.playingSince === null ? 'Play all' : 'Pause';
    find('large-play').textContent = large.since === null ? 'Play' : 'Pause';
}

/// Starts so that the present stop comes next.
function startFrom(stop) {
    return performance.now() - restTime - runTime * stop / last;
}

function togglePlay(playing, key) {
    if (playing[key] === null) {
        playing[key] = startFrom(state.stop === last ? 0 : state.stop);
    } else {
        state.stop = stopAt(performance.now() - playing[key]);
        playing[key] = null;
    }
    keepTicking();
}

function moveTo(stop) {
    state.stop = Math.min(Math.max(stop, 0), last);
    state.playingSince = large.since = null;
    keepTicking();
}

function playView(view, isPlaying) {
    view.since = isPlaying && !calm.matches ? performance.now() - restTime : null;
    keepTicking();
}

// Choices ------------------------------------------------------------------------------------

function commandOf(transition) {
    let command = transition.command;
    if (state.path !== 'yuv')
        command += ' --path ' + state.path;
    if (state.easing !== data.easings[0])
        command += ' --ease ' + state.easing.name;
    return command + (state.isReversed ? ' --reverse' : '');
}

function isFound(transition, words) {
    const {title, name, kind, motion} = transition;
    const text = [title, name, kind, motion].join(' ').toLowerCase();
    return (!state.kind || kind === state.kind) && words.every(word => text.includes(word));
}

function applyChoices() {
    const words = find('word').value.toLowerCase().split(/\s+/).filter(Boolean);
    let shown = 0, lacking = 0;
    for (const view of views) {
        const hasPath = Boolean(takeOf(view.transition)), fits = isFound(view.transition, words);
        view.card.hidden = !fits || !hasPath;
        shown += fits && hasPath;
        lacking += fits && !hasPath;
        view.card.querySelector('code').textContent = commandOf(view.transition);
    }
    find('count').textContent = (shown === views.length ? `${shown} transitions`
                                                        : `${shown} of ${views.length} transitions`) +
        (lacking ? `; ${lacking} without the ${state.path} path` : '');
    releaseOthers();
    showLarge();
    keepTicking();
}

function shownViews() {
    return views.filter(view => !view.card.hidden);
}

// The large view -----------------------------------------------------------------------------

function showLarge() {
    const {transition} = large;
    if (!transition)
        return;
    const kind = document.createElement('span');
    kind.className = 'kind';
    kind.textContent = transition.kind;
    find('large-title').replaceChildren(transition.title + ' ', kind);
    find('large-motion').textContent = transition.motion;
    find('large-remarks').textContent =
        (transition.ends ? `At the ends: ${transition.ends}. ` : '') + transition.remarks;
    find('large-command').textContent = commandOf(transition);
}

function openLarge(view) {
    large.transition = view.transition;
    showLarge();
    if (!find('large').open)
        find('large').showModal();
    playView(large, true);
}

function openNeighbour(distance) {
    const shown = shownViews();
    const index = shown.findIndex(view => view.transition === large.transition);
    openLarge(shown[(index + distance + shown.length) % shown.length]);
}

find('large').addEventListener('close', () => {
    views.find(view => view.transition === large.transition).card.querySelector('.open').focus();
    large.transition = large.since = null;
});

find('large').addEventListener('click', event => {
    if (event.target === find('large')) // beside it
        find('large').close();
});

find('large').addEventListener('keydown', event => {
    const isOnSlider = event.target === find('large-slider');
    if (event.key === 'ArrowLeft' && !isOnSlider)
        openNeighbour(-1);
    else if (event.key === 'ArrowRight' && !isOnSlider)
        openNeighbour(1);
    else if (event.key === ' ' && event.target.tagName !== 'BUTTON')
        togglePlay(large, 'since');
    else
        return;
    event.preventDefault();
});

// Building -----------------------------------------------------------------------------------

async function copy(button, text) {
    try {
        await navigator.clipboard.writeText(text);
    } catch { // without leave to write there, as a selection
        getSelection().selectAllChildren(button.previousElementSibling);
        document.execCommand('copy');
    }
    button.textContent = 'Copied';
    find('said').textContent = 'Command copied';
    setTimeout(() => {
        button.textContent = 'Copy';
        find('said').textContent = '';
    }, 1500);
}

const watcher = new IntersectionObserver(entries => {
    for (const entry of entries)
        views.find(view => view.card === entry.target).isSeen = entry.isIntersecting;
    keepTicking();
}, {rootMargin: '200px'});

function addCard(transition) {
    const card = find('card').content.cloneNode(true).firstElementChild;
    const canvas = card.querySelector('canvas'), open = card.querySelector('.open');
    const view = {card, canvas, transition, since: null, isSeen: false};
    canvas.width = data.width;
    canvas.height = data.height;
    const kind = document.createElement('span');
    kind.className = 'kind';
    kind.textContent = transition.kind;
    card.querySelector('h2').replaceChildren(transition.title + ' ', kind);
    card.querySelector('.motion').textContent = transition.motion;
    card.querySelector('.remarks').textContent = transition.remarks;
    card.dataset.name = transition.name;
    open.setAttribute('aria-label', transition.title + ', large view');
    open.addEventListener('click', () => openLarge(view));
    open.addEventListener('focus', () => open.matches(':focus-visible') && playView(view, true));
    open.addEventListener('blur', () => playView(view, false));
    card.addEventListener('pointerenter', event => {
        if (event.pointerType === 'mouse')
            playView(view, true);
    });
    card.addEventListener('pointerleave', () => playView(view, false));
    const button = card.querySelector('.copy');
    button.setAttribute('aria-label', 'Copy the command of ' + transition.title);
    button.addEventListener('click', () => copy(button, commandOf(transition)));
    views.push(view);
    find('grid').append(card);
    watcher.observe(card);
}

/// A row of values of which one is chosen.
function addPills(id, values, titles, choose) {
    values.forEach((value, index) => {
        const label = document.createElement('label'), input = document.createElement('input');
        input.type = 'radio';
        input.name = id;
        input.value = value;
        input.checked = index === 0;
        input.addEventListener('change', () => {
            choose(value);
            applyChoices();
        });
        label.append(input, titles[index]);
        find(id).append(label);
    });
}

function build() {
    find('clips').textContent = data.clips.join(' \u2192 ');
    if (data.areBuiltIn) {
        const command = document.createElement('code');
        command.textContent = 'transitions pictures ' + data.clips.join(' ');
        find('clips').append(', written by ', command);
    }
    for (const path of Object.keys(data.ends))
        data.ends[path] = {picture: data.ends[path]};
    data.transitions.forEach(addCard);
    const kinds = [...new Set(data.transitions.map(transition => transition.kind))];
    addPills('kinds', ['', ...kinds], ['all', ...kinds], kind => state.kind = kind);
    const paths = Object.keys(data.ends);
    addPills('paths', paths, paths.map(path => pathTitles[path]), path => state.path = path);
    find('paths').hidden = paths.length === 1;
    for (const easing of data.easings)
        find('easing').append(new Option(`${easing.name}: ${easing.description}`, easing.name));
    large.canvas.width = data.width;
    large.canvas.height = data.height;
    large.canvas.style.setProperty('--shape', data.width / data.height);
    for (const name of ['', 'large-']) {
        find(name + 'slider').max = last;
        find(name + 'slider').addEventListener('input', event => moveTo(Number(event.target.value)));
    }
}

build();
find('word').addEventListener('input', applyChoices);
find('easing').addEventListener('change', event => {
    state.easing = data.easings[event.target.selectedIndex];
    applyChoices();
});
find('reversed').addEventListener('change', event => {
    state.isReversed = event.target.checked;
    applyChoices();
});
find('play').addEventListener('click', () => togglePlay(state, 'playingSince'));
find('large-play').addEventListener('click', () => togglePlay(large, 'since'));
find('previous').addEventListener('click', () => openNeighbour(-1));
find('next').addEventListener('click', () => openNeighbour(1));
find('close').addEventListener('click', () => find('large').close());
find('large-copy').addEventListener('click', event => copy(event.target, find('large-command').textContent));
applyChoices();
