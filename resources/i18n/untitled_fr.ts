<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="fr_FR">
<context>
    <name>CalibrationPanel</name>
    <message>
        <location filename="../../app/calibration_panel.cpp" line="74"/>
        <source>Calibration</source>
        <translation>Calibration</translation>
    </message>
    <message>
        <location filename="../../app/calibration_panel.cpp" line="90"/>
        <source>Camera</source>
        <translation>Caméra</translation>
    </message>
    <message>
        <location filename="../../app/calibration_panel.cpp" line="90"/>
        <source>Shared
frames</source>
        <translation>Images
partagées</translation>
    </message>
    <message>
        <location filename="../../app/calibration_panel.cpp" line="90"/>
        <source>Residual
±1σ</source>
        <translation>Résidu
±1σ</translation>
    </message>
    <message>
        <location filename="../../app/calibration_panel.cpp" line="90"/>
        <source>State</source>
        <translation>État</translation>
    </message>
    <message>
        <location filename="../../app/calibration_panel.cpp" line="100"/>
        <source>Shared frames: frames in which this camera and another one each saw exactly one person. Residual: distance between matching joints after the solve. Uncertainty: one standard deviation of the camera&apos;s rotation and position.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location filename="../../app/calibration_panel.cpp" line="133"/>
        <source>%1 frames collected, %2 used by the last solve</source>
        <translation>%1 images collectées, %2 utilisées par la dernière résolution</translation>
    </message>
    <message>
        <location filename="../../app/calibration_panel.cpp" line="159"/>
        <source>%1: %2</source>
        <translation>%1 : %2</translation>
    </message>
    <message>
        <location filename="../../app/calibration_panel.cpp" line="160"/>
        <source>%1 mm</source>
        <translation>%1 mm</translation>
    </message>
    <message>
        <location filename="../../app/calibration_panel.cpp" line="162"/>
        <source>
%1° %2 mm</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location filename="../../app/calibration_panel.cpp" line="168"/>
        <source>none yet</source>
        <translation>aucune pour l'instant</translation>
    </message>
    <message>
        <location filename="../../app/calibration_panel.cpp" line="178"/>
        <source>&lt;font color=%1&gt;All %2 cameras are well placed: you can finish the calibration.&lt;/font&gt;</source>
        <translation>&lt;font color=%1&gt;Les %2 caméras sont bien placées : vous pouvez terminer la calibration.&lt;/font&gt;</translation>
    </message>
    <message>
        <location filename="../../app/calibration_panel.cpp" line="182"/>
        <source>Walk through the room, one person at a time, so that several cameras see you at once. A first result comes after a few seconds.</source>
        <translation>Marchez dans la pièce, une personne à la fois, là où plusieurs caméras vous voient. Un premier résultat arrive après quelques secondes.</translation>
    </message>
    <message>
        <location filename="../../app/calibration_panel.cpp" line="185"/>
        <source>&lt;font color=%1&gt;%2 of %3 cameras still need data: see the State column.&lt;/font&gt;</source>
        <translation>&lt;font color=%1&gt;%2 caméras sur %3 manquent encore de données : voir la colonne État.&lt;/font&gt;</translation>
    </message>
</context>
<context>
    <name>MainWindow</name>
    <message>
        <location filename="../forms/mainwindow.ui" line="12"/>
        <location filename="../forms/mainwindow.ui" line="39"/>
        <source>Halden</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location filename="../forms/mainwindow.ui" line="52"/>
        <source>Room set-up</source>
        <translation>Configurer la pièce</translation>
    </message>
    <message>
        <location filename="../forms/mainwindow.ui" line="53"/>
        <source>Choose the cameras of the room: a room file, the cameras plugged into this computer, network cameras or a hub workspace.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location filename="../forms/mainwindow.ui" line="59"/>
        <location filename="../../app/mainwindow.cpp" line="197"/>
        <source>Start calibration</source>
        <translation>Démarrer la calibration</translation>
    </message>
    <message>
        <location filename="../forms/mainwindow.ui" line="67"/>
        <source>%p% of the next solve</source>
        <translation>%p% de la prochaine résolution</translation>
    </message>
    <message>
        <location filename="../forms/mainwindow.ui" line="78"/>
        <source>Fusion status:</source>
        <translation>État de la fusion :</translation>
    </message>
    <message>
        <location filename="../forms/mainwindow.ui" line="90"/>
        <source>Modules:</source>
        <translation>Modules :</translation>
    </message>
    <message>
        <location filename="../forms/mainwindow.ui" line="95"/>
        <source>Skeletons</source>
        <translation>Squelettes</translation>
    </message>
    <message>
        <location filename="../forms/mainwindow.ui" line="100"/>
        <source>Odometry</source>
        <translation>Odométrie</translation>
    </message>
    <message>
        <location filename="../forms/mainwindow.ui" line="105"/>
        <source>Metrics</source>
        <translation>Mesures</translation>
    </message>
    <message>
        <location filename="../forms/mainwindow.ui" line="106"/>
        <source>Show each camera&apos;s frame rate, latency and detection figures in the view.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location filename="../forms/mainwindow.ui" line="111"/>
        <source>Raw data</source>
        <translation>Données brutes</translation>
    </message>
    <message>
        <location filename="../forms/mainwindow.ui" line="112"/>
        <source>Show each camera&apos;s own skeletons beside the fused ones.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location filename="../forms/mainwindow.ui" line="148"/>
        <source>No room loaded yet</source>
        <translation>Aucune pièce chargée</translation>
    </message>
    <message>
        <location filename="../forms/mainwindow.ui" line="157"/>
        <source>&lt;ol style=&quot;margin-left:0px; -qt-list-indent:1&quot;&gt;&lt;li&gt;Open &lt;b&gt;Room set-up&lt;/b&gt; and choose where the cameras come from: &lt;b&gt;Search USB&lt;/b&gt; for the cameras plugged into this computer, a room file, network cameras or a hub workspace; then &lt;b&gt;Create&lt;/b&gt;.&lt;/li&gt;&lt;li&gt;Wait until the room has started: the 3D view shows the cameras.&lt;/li&gt;&lt;li&gt;Press &lt;b&gt;Start calibration&lt;/b&gt; and walk through the room, one person at a time, where several cameras see you.&lt;/li&gt;&lt;li&gt;When every camera reads &lt;i&gt;Good&lt;/i&gt;, press &lt;b&gt;Finish calibration&lt;/b&gt; and save the room file.&lt;/li&gt;&lt;/ol&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location filename="../forms/mainwindow.ui" line="162"/>
        <source>Set up the room</source>
        <translation>Configurer la pièce</translation>
    </message>
    <message>
        <location filename="../forms/mainwindow.ui" line="209"/>
        <source>Starting the room…</source>
        <translation>Démarrage de la pièce…</translation>
    </message>
    <message>
        <location filename="../../app/mainwindow.cpp" line="175"/>
        <source>You must set up your room before calibrating it.</source>
        <translation>Vous devez configurer votre pièce avant de la calibrer.</translation>
    </message>
    <message>
        <location filename="../../app/mainwindow.cpp" line="187"/>
        <source>Finish calibration</source>
        <translation>Terminer la calibration</translation>
    </message>
</context>
<context>
    <name>QObject</name>
    <message>
        <location filename="../../app/calibration_panel.cpp" line="36"/>
        <source>No data</source>
        <translation>Aucune donnée</translation>
    </message>
    <message>
        <location filename="../../app/calibration_panel.cpp" line="37"/>
        <source>Needs frames</source>
        <translation>Manque d'images</translation>
    </message>
    <message>
        <location filename="../../app/calibration_panel.cpp" line="38"/>
        <source>Settling</source>
        <translation>En cours</translation>
    </message>
    <message>
        <location filename="../../app/calibration_panel.cpp" line="39"/>
        <source>Good</source>
        <translation>Bonne</translation>
    </message>
    <message>
        <location filename="../../app/calibration_panel.cpp" line="57"/>
        <source>Not yet seen together with another camera: walk where it and a neighbour both see you.</source>
        <translation>Pas encore vue avec une autre caméra : marchez là où elle et une voisine vous voient.</translation>
    </message>
    <message>
        <location filename="../../app/calibration_panel.cpp" line="59"/>
        <source>Keep walking in its view; it needs more frames.</source>
        <translation>Continuez à marcher dans son champ ; il lui faut plus d'images.</translation>
    </message>
    <message>
        <location filename="../../app/calibration_panel.cpp" line="64"/>
        <source>Its pose is still uncertain; walk across its whole field of view.</source>
        <translation>Sa pose est encore incertaine ; parcourez tout son champ de vision.</translation>
    </message>
    <message>
        <location filename="../../app/calibration_panel.cpp" line="65"/>
        <source>Its pose is well determined.</source>
        <translation>Sa pose est bien déterminée.</translation>
    </message>
</context>
</TS>
